#ifndef AMBERVANE_MAILCORE_PREVIEW_H_
#define AMBERVANE_MAILCORE_PREVIEW_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace ambervane {

/// One line of at most `limit` code points for lists of messages: white space collapsed, and cut
/// where a quoted line (">") or a signature (" --") begins. `text` is UTF-8.
std::string collapsedForPreview(std::string_view text, std::size_t limit);

}  // namespace ambervane

#endif  // AMBERVANE_MAILCORE_PREVIEW_H_
