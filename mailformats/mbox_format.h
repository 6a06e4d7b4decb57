#ifndef AMBERVANE_MAILFORMATS_MBOX_FORMAT_H_
#define AMBERVANE_MAILFORMATS_MBOX_FORMAT_H_

#include <cstddef>
#include <optional>
#include <set>

#include "base/bytes.h"
#include "base/date.h"
#include "mailcore/message_flag.h"

namespace ambervane {

/// How a writer kept body lines that look like separators apart from them.
enum class MboxVariant {
  detected,  ///< told for each message from its own content
  mboxo,     ///< "From " became ">From "
  mboxrd,    ///< every line of any number of ">" and "From " got one more ">"
  mboxcl2    ///< nothing was changed; Content-Length says where the message ends
};

/// Where the first message at or behind `from` starts: a "From " at the start of `file`, behind an
/// empty line, or, where lines end in CRLF, behind any line end. npos when there is none. A "From "
/// line right behind text is left alone, which is how unescaped bodies survive.
std::size_t nextMboxStart(BytesView file, std::size_t from) noexcept;

/// One message of an mbox file.
struct MboxMessage {
  Bytes raw;
  std::set<MessageFlag> flags;       ///< of its Status, X-Status and X-Mozilla-Status fields
  std::optional<Date> internalDate;  ///< of its envelope line
};

/// Reads what lies from one start to the next: envelope line, message and separating empty line.
MboxMessage readMboxSegment(BytesView segment, MboxVariant variant);

/// The variant `content`, a message without its envelope line, was written in.
MboxVariant detectMboxVariant(BytesView content) noexcept;
/// Takes the one ">" the writer added from each line that needs it.
Bytes unescapeMbox(BytesView content, MboxVariant variant);
/// `content` without the line end that separates it from the next envelope line: the last one, when
/// the content ends in an empty line.
BytesView withoutSeparator(BytesView content) noexcept;
/// The date of an envelope line: asctime's form, a zone before or behind the year included, or any
/// other that a Date field may have. Without a zone it is taken as UTC.
std::optional<Date> mboxEnvelopeDate(BytesView line);

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_MBOX_FORMAT_H_
