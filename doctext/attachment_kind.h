#ifndef AMBERVANE_DOCTEXT_ATTACHMENT_KIND_H_
#define AMBERVANE_DOCTEXT_ATTACHMENT_KIND_H_

#include <optional>
#include <string_view>

#include "base/bytes.h"

namespace ambervane {

/// Kinds of attachment whose text is read. `office` is any of the zipped XML formats: Office Open
/// XML and OpenDocument.
enum class AttachmentKind { plainText, html, calendar, xml, pdf, office };

struct RecognisedKind {
  AttachmentKind kind;
  bool isDeclared = true;  ///< false: only the bytes hint at it
};

/// The kind by MIME type (lower case, no parameters), else by the file name's extension, else,
/// where the type says nothing, by the first bytes. Where a kind that is read was declared and the
/// first bytes are those of another, the bytes win. Absent for what is not read.
std::optional<RecognisedKind> attachmentKind(std::string_view mimeType, std::string_view fileName,
                                             BytesView bytes);

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_ATTACHMENT_KIND_H_
