#ifndef AMBERVANE_MAILCORE_HTML_TEXT_H_
#define AMBERVANE_MAILCORE_HTML_TEXT_H_

#include <string>
#include <string_view>

namespace ambervane::HTMLText {

/// The text of an HTML page, for searching and previews: tags, comments, scripts, styles and the
/// title removed, character references decoded. Runs of white space become one blank, or one LF
/// where a block element, a <br> or a line of <pre> begins or ends. Takes any input and repairs
/// ill-formed UTF-8; linear, without recursion, reads nothing but `html`.
std::string strip(std::string_view html);

}  // namespace ambervane::HTMLText

#endif  // AMBERVANE_MAILCORE_HTML_TEXT_H_
