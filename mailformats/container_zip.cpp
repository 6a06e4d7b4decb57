#include "mailformats/container_zip.h"

#include <sys/stat.h>
#include <zip.h>

#include <algorithm>
#include <new>
#include <system_error>

namespace ambervane {
namespace {

namespace fs = std::filesystem;

struct ZipCloser {
  void operator()(zip_t* archive) const { ::zip_discard(archive); }
  void operator()(zip_file_t* member) const { ::zip_fclose(member); }
};
using Archive = std::unique_ptr<zip_t, ZipCloser>;
using OpenMember = std::unique_ptr<zip_file_t, ZipCloser>;

ContainerError::Reason reasonOf(zip_error_t* error, int method) {
  switch (::zip_error_code_zip(error)) {
    case ZIP_ER_NOPASSWD:
    case ZIP_ER_WRONGPASSWD:
    case ZIP_ER_ENCRNOTSUPP:
      return ContainerError::Encrypted{};
    case ZIP_ER_COMPNOTSUPP:
      return ContainerError::UnknownMethod{method};
    case ZIP_ER_EOF:
      return ContainerError::CutShort{};
    case ZIP_ER_NOZIP:
      return ContainerError::NoDirectory{};
    case ZIP_ER_MEMORY:
      throw std::bad_alloc();
    default:
      break;
  }
  const int system = ::zip_error_code_system(error);
  if (::zip_error_system_type(error) == ZIP_ET_SYS && system != 0) {
    return ContainerError::System{system};
  }
  return ContainerError::Damaged{::zip_error_strerror(error)};
}

class ZipMemberStream final : public InputStream {
 public:
  ZipMemberStream(OpenMember member, std::uint64_t packedBytes, ExpansionLimit& container)
      : member_(std::move(member)), limit_(packedBytes, &container), piece_(kPieceBytes, '\0') {}

  BytesView next() override {
    std::size_t filled = 0;
    while (filled < piece_.size() && !failed_) {
      const zip_int64_t got =
          ::zip_fread(member_.get(), piece_.data() + filled, piece_.size() - filled);
      if (got == 0) break;
      failed_ = got < 0;
      if (!failed_) filled += static_cast<std::size_t>(got);
    }
    // What is found wrong behind good bytes is told when these have been taken.
    if (failed_ && filled == 0) {
      throw ContainerError(reasonOf(::zip_file_get_error(member_.get()), 0));
    }
    limit_.add(filled);
    return {piece_.data(), filled};
  }

 private:
  OpenMember member_;
  ExpansionLimit limit_;
  Bytes piece_;
  bool failed_ = false;
};

class ZipContainer final : public Container {
 public:
  ZipContainer(Archive archive, std::uint64_t size)
      : archive_(std::move(archive)),
        count_(static_cast<std::uint64_t>(
            std::max<zip_int64_t>(::zip_get_num_entries(archive_.get(), 0), 0))),
        fileBytes_(size),
        limit_(size) {}

  std::optional<Member> next() override {
    while (index_ < count_) {
      current_ = index_++;
      const char* const name = ::zip_get_name(archive_.get(), current_, ZIP_FL_ENC_GUESS);
      const std::string_view path = name == nullptr ? std::string_view() : name;
      if (path.ends_with('/') || path.ends_with('\\') || isLink()) continue;
      zip_stat_t facts{};
      const bool known = ::zip_stat_index(archive_.get(), current_, 0, &facts) == 0;
      const bool sized = known && (facts.valid & ZIP_STAT_COMP_SIZE) != 0;
      packedBytes_ = sized ? std::min<std::uint64_t>(facts.comp_size, fileBytes_) : 0;
      method_ = known && (facts.valid & ZIP_STAT_COMP_METHOD) != 0 ? facts.comp_method : 0;
      return Member{memberPath(path), packedBytes_};
    }
    return std::nullopt;
  }

  std::unique_ptr<InputStream> open() override {
    OpenMember member(::zip_fopen_index(archive_.get(), current_, 0));
    if (!member) throw ContainerError(reasonOf(::zip_get_error(archive_.get()), method_));
    return std::make_unique<ZipMemberStream>(std::move(member), packedBytes_, limit_);
  }

  bool isTree() const noexcept override { return true; }
  ExpansionLimit& limit() override { return limit_; }

 private:
  /// A link's bytes are the path it leads to, which is no mail.
  bool isLink() const {
    zip_uint8_t system = 0;
    zip_uint32_t attributes = 0;
    ::zip_file_get_external_attributes(archive_.get(), current_, 0, &system, &attributes);
    return system == ZIP_OPSYS_UNIX && S_ISLNK(attributes >> 16);
  }

  Archive archive_;
  std::uint64_t count_;
  std::uint64_t fileBytes_;
  std::uint64_t index_ = 0;
  std::uint64_t current_ = 0;
  std::uint64_t packedBytes_ = 0;
  int method_ = 0;
  ExpansionLimit limit_;
};

}  // namespace

std::unique_ptr<Container> openZip(const fs::path& file) {
  std::error_code error;
  const std::uint64_t size = fs::file_size(file, error);
  if (error) throw ContainerError(ContainerError::System{error.value()});
  int code = 0;
  Archive archive(::zip_open(file.c_str(), ZIP_RDONLY, &code));
  if (!archive) {
    zip_error_t problem;
    ::zip_error_init_with_code(&problem, code);  // takes errno along where that tells more
    const ContainerError::Reason reason = reasonOf(&problem, 0);
    ::zip_error_fini(&problem);
    throw ContainerError(reason);
  }
  return std::make_unique<ZipContainer>(std::move(archive), size);
}

}  // namespace ambervane
