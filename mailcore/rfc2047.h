#ifndef AMBERVANE_MAILCORE_RFC2047_H_
#define AMBERVANE_MAILCORE_RFC2047_H_

#include <string>
#include <string_view>

/// Encoded words in header fields (RFC 2047).
namespace ambervane::RFC2047 {

/// `text` (UTF-8) with its encoded words read, trimmed. White space between two words goes; a word
/// that cannot be read stays as written. Never fails, linear.
std::string decode(std::string_view text);
/// ASCII as it stands; any other text as one base64 word in UTF-8, however long.
std::string encodeIfNeeded(std::string_view text);

}  // namespace ambervane::RFC2047

#endif  // AMBERVANE_MAILCORE_RFC2047_H_
