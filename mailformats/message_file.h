#ifndef AMBERVANE_MAILFORMATS_MESSAGE_FILE_H_
#define AMBERVANE_MAILFORMATS_MESSAGE_FILE_H_

#include <cstddef>
#include <filesystem>
#include <optional>
#include <utility>

#include "base/bytes.h"
#include "base/date.h"
#include "base/file.h"
#include "mailformats/message_importer.h"

namespace ambervane {

/// More than any mail system delivers; what is larger is no message, and is not read into memory.
inline constexpr std::size_t kMaxMessageBytes = std::size_t{1} << 30;

/// Up to `count` bytes from the start of a file. Throws FileError.
Bytes fileStart(const std::filesystem::path& file, std::size_t count);

/// A file with mail, opened once for its first bytes and for all of them.
class MailFile {
 public:
  enum class Links { follow, refuse };
  /// Never waits for the writer of a pipe. What is no regular file, or cannot be opened or read, is
  /// reported; absent then.
  static std::optional<MailFile> open(const std::filesystem::path& path,
                                      const MessageImporter::Unreadable& unreadable,
                                      Links links = Links::follow);
  /// The first 8 bytes, or as many as there are.
  BytesView start() const noexcept;
  /// The bytes it had when it was opened. What cannot be read, or is no message for its size, is
  /// reported; absent then. The object is used up.
  std::optional<Bytes> readWhole(const MessageImporter::Unreadable& unreadable) &&;

 private:
  MailFile(FileHandle handle, std::filesystem::path path)
      : handle_(std::move(handle)), path_(std::move(path)) {}

  FileHandle handle_;
  std::filesystem::path path_;
  Bytes begin_;  ///< its first bytes
  std::size_t size_ = 0;
};

/// The bytes of a file with one message, as `MailFile` gives them.
std::optional<Bytes> readMessageFile(const std::filesystem::path& file,
                                     const MessageImporter::Unreadable& unreadable);

/// A moment that a store has recorded, in seconds since 1970. Absent outside of the years 1 to
/// 9999.
std::optional<Date> dateFromSeconds(double seconds) noexcept;

/// What the first bytes of a file tell.
bool looksLikeMbox(BytesView start) noexcept;
bool looksLikePST(BytesView start) noexcept;
/// A compound file, as Outlook messages are; so are other documents of its time.
bool looksLikeMSG(BytesView start) noexcept;
/// An OLM file is a ZIP file told from others by its name.
bool looksLikeOLM(const std::filesystem::path& file, BytesView start);

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_MESSAGE_FILE_H_
