#ifndef AMBERVANE_MAILFORMATS_MESSAGE_FILE_H_
#define AMBERVANE_MAILFORMATS_MESSAGE_FILE_H_

#include <cstddef>
#include <filesystem>
#include <optional>

#include "base/bytes.h"
#include "mailformats/message_importer.h"

namespace ambervane {

/// More than any mail system delivers; what is larger is no message, and is not read into memory.
inline constexpr std::size_t kMaxMessageBytes = std::size_t{1} << 30;

/// Up to `count` bytes from the start of a file. Throws FileError.
Bytes fileStart(const std::filesystem::path& file, std::size_t count);

/// The bytes of a file with one message. What cannot be read, or is no message for its size, is
/// reported; absent then.
std::optional<Bytes> readMessageFile(const std::filesystem::path& file,
                                     const MessageImporter::Unreadable& unreadable);

/// What the first bytes of a file tell.
bool looksLikeMbox(BytesView start) noexcept;
bool looksLikePST(BytesView start) noexcept;
/// A compound file, as Outlook messages are; so are other documents of its time.
bool looksLikeMSG(BytesView start) noexcept;
/// An OLM file is a ZIP file told from others by its name.
bool looksLikeOLM(const std::filesystem::path& file, BytesView start);

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_MESSAGE_FILE_H_
