#include "mailformats/container_gzip.h"

#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "base/file.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

/// The bytes of a file as they stand.
class FileStream final : public InputStream {
 public:
  explicit FileStream(FileHandle file) : file_(std::move(file)), piece_(kPieceBytes, '\0') {}

  BytesView next() override {
    std::size_t filled = 0;
    while (filled < piece_.size()) {
      const ssize_t got =
          ::read(file_.descriptor(), piece_.data() + filled, piece_.size() - filled);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) throw ContainerError(ContainerError::System{errno});
      if (got == 0) break;
      filled += static_cast<std::size_t>(got);
    }
    return {piece_.data(), filled};
  }

 private:
  FileHandle file_;
  Bytes piece_;
};

class GzipStream final : public InputStream {
 public:
  GzipStream(std::unique_ptr<InputStream> packed, BytesView head, ExpansionLimit& limit)
      : packed_(std::move(packed)), limit_(limit), input_(head), piece_(kPieceBytes, '\0') {
    constexpr int kLargestWindowAndGzip = 15 + 16;
    if (::inflateInit2(&inflater_, kLargestWindowAndGzip) != Z_OK) throw std::bad_alloc();
  }
  ~GzipStream() override { ::inflateEnd(&inflater_); }
  GzipStream(const GzipStream&) = delete;
  GzipStream& operator=(const GzipStream&) = delete;

  BytesView next() override {
    std::size_t filled = 0;
    // What is found wrong behind good bytes is told when these have been taken.
    if (!problem_) {
      try {
        filled = fill();
      } catch (const ContainerError& error) {
        problem_ = error;
        filled = piece_.size() - inflater_.avail_out;
      }
    }
    if (filled == 0 && problem_) throw ContainerError(*problem_);
    limit_.add(filled);
    return {piece_.data(), filled};
  }

 private:
  /// Returns the bytes in `piece_`.
  std::size_t fill() {
    inflater_.next_out = reinterpret_cast<Bytef*>(piece_.data());
    inflater_.avail_out = static_cast<uInt>(piece_.size());
    while (inflater_.avail_out > 0) {
      if (input_.empty()) input_ = packed_->next();
      if (!betweenFiles_) {
        if (input_.empty()) throw ContainerError(ContainerError::CutShort{});
        inflatePiece();
      } else if (!startNextFile()) {
        break;
      }
    }
    return piece_.size() - inflater_.avail_out;
  }

  void inflatePiece() {
    inflater_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(input_.data()));
    inflater_.avail_in = static_cast<uInt>(input_.size());
    const int result = ::inflate(&inflater_, Z_NO_FLUSH);
    input_.remove_prefix(input_.size() - inflater_.avail_in);
    betweenFiles_ = result == Z_STREAM_END;
    if (result == Z_MEM_ERROR) throw std::bad_alloc();
    if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
      const char* const words = inflater_.msg;
      throw ContainerError(ContainerError::Damaged{words != nullptr ? words : "no gzip data"});
    }
  }

  /// gzip files may follow one another, and zeros the last one, as on tapes. False at the end.
  bool startNextFile() {
    const std::size_t zeros = std::min(input_.find_first_not_of('\0'), input_.size());
    afterZeros_ = afterZeros_ || zeros > 0;
    input_.remove_prefix(zeros);
    if (input_.empty()) {
      if (zeros == 0) return false;
      return true;  // there may be more in the next piece
    }
    if (afterZeros_ || input_.front() != '\x1f') {
      throw ContainerError(ContainerError::Damaged{"other bytes follow behind it"});
    }
    ::inflateReset(&inflater_);
    betweenFiles_ = false;
    return true;
  }

  std::unique_ptr<InputStream> packed_;
  ExpansionLimit& limit_;
  BytesView input_;
  Bytes piece_;
  z_stream inflater_{};
  bool betweenFiles_ = false;
  bool afterZeros_ = false;
  std::optional<ContainerError> problem_;
};

class GzipContainer final : public Container {
 public:
  GzipContainer(FileHandle file, std::uint64_t size, std::string path)
      : file_(std::move(file)), member_(Member{std::move(path), size}), limit_(size) {}

  std::optional<Member> next() override { return std::exchange(member_, std::nullopt); }
  std::unique_ptr<InputStream> open() override {
    return gunzip(std::make_unique<FileStream>(std::move(file_)), {}, limit_);
  }
  bool isTree() const noexcept override { return false; }
  ExpansionLimit& limit() override { return limit_; }

 private:
  FileHandle file_;
  std::optional<Member> member_;
  ExpansionLimit limit_;
};

}  // namespace

std::unique_ptr<InputStream> gunzip(std::unique_ptr<InputStream> packed, BytesView head,
                                    ExpansionLimit& limit) {
  return std::make_unique<GzipStream>(std::move(packed), head, limit);
}

std::unique_ptr<Container> openGzip(const fs::path& file) {
  FileHandle handle = openForReading(file);
  struct stat info {};
  if (::fstat(handle.descriptor(), &info) != 0) {
    throw FileError(FileError::Action::read, file, errno);
  }
  return std::make_unique<GzipContainer>(std::move(handle),
                                         static_cast<std::uint64_t>(info.st_size),
                                         memberPath(file.filename().native()));
}

}  // namespace ambervane
