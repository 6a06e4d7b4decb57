#include "mailformats/message_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "mailformats/folder_listing.h"

namespace ambervane {

namespace fs = std::filesystem;
using namespace std::string_view_literals;

namespace {

constexpr std::size_t kStartBytes = 8;
/// Read at once, so that most messages take a single call.
constexpr std::size_t kFirstReadBytes = 65536;
constexpr const char* kNotRegular = "not a regular file";

/// Fills `bytes` from `filled` on, as far as the file goes, and cuts the rest off.
void fill(const FileHandle& handle, const fs::path& file, Bytes& bytes, std::size_t filled) {
  while (filled < bytes.size()) {
    const ssize_t got = ::read(handle.descriptor(), bytes.data() + filled, bytes.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw FileError(FileError::Action::read, file, errno);
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
  }
  bytes.resize(filled);
}

}  // namespace

Bytes fileStart(const fs::path& file, std::size_t count) {
  Bytes start(count, '\0');
  fill(openForReading(file), file, start, 0);
  return start;
}

std::optional<MailFile> MailFile::open(const fs::path& path,
                                       const MessageImporter::Unreadable& unreadable, Links links) {
  const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | (links == Links::refuse ? O_NOFOLLOW : 0);
  std::string problem;
  try {
    FileHandle handle(::open(path.c_str(), flags));
    struct stat info {};
    if (!handle || ::fstat(handle.descriptor(), &info) != 0) {
      const int error = errno;
      if (error == ELOOP && links == Links::refuse) {
        problem = unreadableItem(path, "a link, not followed");
      } else {
        // A socket cannot be opened at all.
        problem = error == ENXIO ? unreadableItem(path, kNotRegular) : unreadableItem(path, error);
      }
    } else if (!S_ISREG(info.st_mode)) {
      problem = unreadableItem(path, kNotRegular);
    } else {
      MailFile file(std::move(handle), path);
      file.size_ = static_cast<std::size_t>(info.st_size);
      file.begin_.resize(std::min(file.size_, kFirstReadBytes));
      fill(file.handle_, path, file.begin_, 0);
      return file;
    }
  } catch (const FileError& error) {
    problem = unreadableItem(path, error.error());
  }
  if (unreadable) unreadable(problem);
  return std::nullopt;
}

BytesView MailFile::start() const noexcept { return BytesView(begin_).substr(0, kStartBytes); }

std::optional<Bytes> MailFile::readWhole(const MessageImporter::Unreadable& unreadable) && {
  std::string problem;
  try {
    if (size_ <= kMaxMessageBytes) {
      const std::size_t have = begin_.size();
      begin_.resize(size_);
      fill(handle_, path_, begin_, have);
      return std::move(begin_);
    }
    problem = unreadableItem(path_, "too large for a message");
  } catch (const FileError& error) {
    problem = unreadableItem(path_, error.error());
  }
  if (unreadable) unreadable(problem);
  return std::nullopt;
}

std::optional<Bytes> readMessageFile(const fs::path& file,
                                     const MessageImporter::Unreadable& unreadable) {
  auto opened = MailFile::open(file, unreadable);
  return opened ? std::move(*opened).readWhole(unreadable) : std::nullopt;
}

std::optional<Date> dateFromSeconds(double seconds) noexcept {
  constexpr double kFirst = -62135596800;
  constexpr double kLast = 253402300799;
  if (!(seconds >= kFirst && seconds <= kLast)) return std::nullopt;
  return Date{seconds};
}

bool looksLikeMbox(BytesView start) noexcept { return start.starts_with("From "); }

bool looksLikePST(BytesView start) noexcept { return start.starts_with("!BDN"); }

bool looksLikeMSG(BytesView start) noexcept {
  return start.starts_with("\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1"sv);
}

bool looksLikeOLM(const fs::path& file, BytesView start) {
  return start.starts_with("PK") && lowercaseExtension(file.filename().native()) == "olm";
}

}  // namespace ambervane
