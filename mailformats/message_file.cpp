#include "mailformats/message_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "base/file.h"
#include "mailformats/folder_listing.h"

namespace ambervane {

namespace fs = std::filesystem;
using namespace std::string_view_literals;

Bytes fileStart(const fs::path& file, std::size_t count) {
  const FileHandle handle = openForReading(file);
  Bytes start(count, '\0');
  std::size_t filled = 0;
  while (filled < count) {
    const ssize_t got = ::read(handle.descriptor(), start.data() + filled, count - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw FileError(FileError::Action::read, file, errno);
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
  }
  start.resize(filled);
  return start;
}

std::optional<Bytes> readMessageFile(const fs::path& file,
                                     const MessageImporter::Unreadable& unreadable) {
  std::string problem;
  try {
    struct stat info {};
    if (::stat(file.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
      problem = unreadableItem(file, "not a regular file");
    } else if (static_cast<std::uint64_t>(info.st_size) > kMaxMessageBytes) {
      problem = unreadableItem(file, "too large for a message");
    } else {
      return readFile(file);
    }
  } catch (const FileError& error) {
    problem = unreadableItem(file, error.error());
  }
  if (unreadable) unreadable(problem);
  return std::nullopt;
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
