#ifndef AMBERVANE_MAILCORE_MESSAGE_FLAG_H_
#define AMBERVANE_MAILCORE_MESSAGE_FLAG_H_

#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace ambervane {

/// The system flags of a message (RFC 3501 section 2.3.2).
enum class MessageFlag { seen, answered, flagged, deleted, draft, recent };

/// The IMAP spelling, such as "\Seen".
std::string_view imapName(MessageFlag flag) noexcept;
/// Reads the IMAP spelling, whatever its case; absent for any other text.
std::optional<MessageFlag> messageFlagFromImap(std::string_view text) noexcept;
/// The IMAP spellings sorted as text and joined with one blank: "\Flagged \Seen".
std::string flagText(const std::set<MessageFlag>& flags);
/// Reads what `flagText` writes; words that are no flag are passed over.
std::set<MessageFlag> flagsFromText(std::string_view text);

}  // namespace ambervane

#endif  // AMBERVANE_MAILCORE_MESSAGE_FLAG_H_
