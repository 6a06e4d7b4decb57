#ifndef AMBERVANE_IMAPKIT_MODIFIED_UTF7_H_
#define AMBERVANE_IMAPKIT_MODIFIED_UTF7_H_

#include <string>
#include <string_view>

/// The encoding of mailbox names (RFC 3501 section 5.1.3): "&" begins a run of modified base64 of
/// UTF-16, "-" ends it, "&-" is an ampersand. Both are total and linear.
namespace ambervane::ModifiedUTF7 {

/// Printable ASCII. `name` is UTF-8; what is ill-formed in it becomes U+FFFD.
std::string encode(std::string_view name);
/// UTF-8. A run that cannot be decoded stays as written.
std::string decode(std::string_view encoded);

}  // namespace ambervane::ModifiedUTF7

#endif  // AMBERVANE_IMAPKIT_MODIFIED_UTF7_H_
