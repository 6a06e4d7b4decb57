#include "doctext/zip_members.h"

#include <zip.h>

#include <array>

namespace ambervane {
namespace {

struct MemberCloser {
  void operator()(zip_file_t* member) const noexcept { zip_fclose(member); }
};

}  // namespace

void ZipMembers::Closer::operator()(zip* archive) const noexcept { zip_discard(archive); }

std::optional<ZipMembers> ZipMembers::open(BytesView bytes, std::uint64_t unpackedBytes) {
  zip_error_t error;
  zip_error_init(&error);
  zip_t* archive = nullptr;
  if (zip_source_t* const source =
          zip_source_buffer_create(bytes.data(), bytes.size(), /*freep=*/0, &error)) {
    archive = zip_open_from_source(source, ZIP_RDONLY, &error);
    if (archive == nullptr) zip_source_free(source);
  }
  zip_error_fini(&error);
  if (archive == nullptr) return std::nullopt;
  return ZipMembers(archive, unpackedBytes);
}

std::optional<std::uint64_t> ZipMembers::index(std::string_view name) const {
  const std::string text(name);
  zip_int64_t found = zip_name_locate(archive_.get(), text.c_str(), 0);
  if (found < 0) found = zip_name_locate(archive_.get(), text.c_str(), ZIP_FL_NOCASE);
  if (found < 0) return std::nullopt;
  return static_cast<std::uint64_t>(found);
}

bool ZipMembers::read(std::string_view name, const std::function<bool(BytesView piece)>& take) {
  const auto found = index(name);
  if (!found) return false;
  const std::unique_ptr<zip_file_t, MemberCloser> member(
      zip_fopen_index(archive_.get(), *found, 0));
  if (!member) return false;
  std::array<char, 16 * 1024> buffer;
  for (;;) {
    const zip_int64_t count = zip_fread(member.get(), buffer.data(), buffer.size());
    if (count < 0) return false;
    if (count == 0) return true;
    const auto length = static_cast<std::size_t>(count);
    if (length > room_) {
      room_ = 0;
      return false;
    }
    room_ -= length;
    if (!take(BytesView(buffer.data(), length))) return true;
  }
}

}  // namespace ambervane
