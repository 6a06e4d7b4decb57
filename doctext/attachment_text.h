#ifndef AMBERVANE_DOCTEXT_ATTACHMENT_TEXT_H_
#define AMBERVANE_DOCTEXT_ATTACHMENT_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/bytes.h"

namespace ambervane {

/// What reading one attachment may cost.
struct AttachmentTextLimits {
  std::size_t attachmentBytes = std::size_t{64} << 20;  ///< larger ones are not read
  std::size_t textBytes = std::size_t{2} << 20;         ///< text behind this is left out
  std::uint64_t unpackedBytes = std::uint64_t{256} << 20;
  std::uint64_t memoryBytes = std::uint64_t{1} << 30;  ///< address space of the helper
  std::uint32_t processorMilliseconds = 10'000;
  std::uint32_t totalMilliseconds = 60'000;  ///< waiting included
};

struct AttachmentText {
  std::string text;      ///< words in UTF-8 with blanks and LFs between them; may be empty
  bool readable = true;  ///< false: damaged, encrypted or beyond a limit; `text` is what was had
};

/// Finds the text of attachments, for a search index. Reads plain text and anything else of
/// "text/", HTML, iCalendar, XML, PDF, Office Open XML (DOCX, XLSX, PPTX) and OpenDocument.
///
/// PDF and everything in XML are read in another process, the document helper: libraries of that
/// size are not trusted with hostile files here, and a reading that does not end can only be ended
/// from outside. Helpers are started as needed and live as long as this object. Safe from any
/// thread. Nothing in an attachment makes it throw.
class AttachmentTextReader {
 public:
  /// `helper` is the program to start, see `findDocumentHelper`; with an empty path what needs it
  /// counts as not readable.
  explicit AttachmentTextReader(std::filesystem::path helper, AttachmentTextLimits limits = {});
  ~AttachmentTextReader();
  AttachmentTextReader(const AttachmentTextReader&) = delete;
  AttachmentTextReader& operator=(const AttachmentTextReader&) = delete;

  /// The text of an attachment of these decoded bytes; absent for a kind that is not read.
  /// `contentType` is a Content-Type with or without parameters, of which the charset counts. A
  /// document of the same `digest` as one read lately is not read again; with an empty one it is.
  std::optional<AttachmentText> read(BytesView bytes, std::string_view contentType,
                                     std::string_view fileName, std::string_view digest = {}) const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_ATTACHMENT_TEXT_H_
