#include "mailformats/container.h"

#include <limits>
#include <system_error>
#include <vector>

#include "base/file.h"
#include "base/text.h"
#include "mailformats/container_gzip.h"
#include "mailformats/container_zip.h"
#include "mailformats/message_file.h"

namespace ambervane {

using namespace std::string_view_literals;

LocalizedMessage ContainerError::message() const {
  struct Words {
    LocalizedMessage operator()(const Damaged& r) const {
      return {"its compressed data is damaged (%@)", {r.detail}};
    }
    LocalizedMessage operator()(const CutShort&) const {
      return {"its compressed data ends early", {}};
    }
    LocalizedMessage operator()(const NoDirectory&) const {
      return {"it is damaged or cut short: the directory at its end is missing", {}};
    }
    LocalizedMessage operator()(const Encrypted&) const {
      return {"it is encrypted, unpack it with its password and import what comes out", {}};
    }
    LocalizedMessage operator()(const UnknownMethod& r) const {
      return {"it is compressed by a method that cannot be read here (number %@)",
              {std::to_string(r.method)}};
    }
    LocalizedMessage operator()(const Expands&) const {
      return {
          "it unpacks to more than %@ times its size, as a ZIP bomb does and mail does not; "
          "the rest of it was not read",
          {std::to_string(kMaxExpansion)}};
    }
    LocalizedMessage operator()(const System& r) const {
      return {"%@", {std::generic_category().message(r.error)}};
    }
  };
  return std::visit(Words{}, reason_);
}

ExpansionLimit::ExpansionLimit(std::uint64_t packedBytes, ExpansionLimit* container) noexcept
    : container_(container) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max() - kFreeUnpackedBytes;
  left_ = kFreeUnpackedBytes +
          (packedBytes > kMost / kMaxExpansion ? kMost : packedBytes * kMaxExpansion);
}

void ExpansionLimit::add(std::uint64_t unpackedBytes) {
  if (unpackedBytes > left_) {
    throw ContainerError(ContainerError::Expands{.wholeContainer = container_ == nullptr});
  }
  left_ -= unpackedBytes;
  if (container_ != nullptr) container_->add(unpackedBytes);
}

bool looksLikeGzip(BytesView start) noexcept { return start.starts_with("\x1f\x8b\x08"sv); }

bool looksLikeZip(BytesView start) noexcept {
  return start.starts_with("PK\3\4"sv) || start.starts_with("PK\5\6"sv);
}

std::unique_ptr<Container> openContainer(const std::filesystem::path& file) {
  try {
    if (looksLikeGzip(fileStart(file, 4))) return openGzip(file);
  } catch (const FileError& error) {
    throw ContainerError(ContainerError::System{error.error()});
  }
  return openZip(file);
}

std::string memberPath(std::string_view path) {
  const std::string text = repairedUtf8(path);
  std::vector<std::string> names;
  for (const std::string_view name : splitOmittingEmpty(text, "/\\")) {
    const bool isDrive = names.empty() && name.size() == 2 && name[1] == ':';
    if (name != "." && name != ".." && !isDrive) names.emplace_back(name);
  }
  return join(names, "/");
}

}  // namespace ambervane
