#ifndef AMBERVANE_IMAPKIT_COMMAND_LINE_H_
#define AMBERVANE_IMAPKIT_COMMAND_LINE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/date.h"

// The text of IMAP commands.
namespace ambervane {

/// `text` in double quotes, what needs it escaped by a backslash (RFC 3501 section 4.3). Line ends
/// and NUL cannot be written so, see `isOneLine`.
std::string quotedString(std::string_view text);
/// Whether a command can be sent as it stands: no CR, LF or NUL, with which a name could smuggle a
/// second command in.
bool isOneLine(std::string_view command) noexcept;
/// "SELECT" of "select INBOX", "STORE" of "UID STORE 1 ...": what a command does, in upper case.
std::string commandVerb(std::string_view command);
/// Whether a command of that verb changes a mailbox, or opens one so that looking changes it.
bool modifiesMailbox(std::string_view verb) noexcept;

/// "05-Feb-2024": a day in UTC, for SEARCH.
std::string searchDate(Date date);
/// "05-Feb-2024 10:00:00 +0000"
std::string internalDateText(Date date);
/// Reads what `internalDateText` writes, any zone, the day also with a blank in front.
std::optional<Date> parseInternalDate(std::string_view text);

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_COMMAND_LINE_H_
