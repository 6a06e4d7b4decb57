#ifndef AMBERVANE_MAILCORE_HTML_ENTITIES_H_
#define AMBERVANE_MAILCORE_HTML_ENTITIES_H_

#include <cstddef>
#include <string_view>

namespace ambervane {

/// The characters a named reference of HTML stands for ("eacute"), in UTF-8; empty for an unknown
/// name. The case of names counts. The view is valid for ever.
std::string_view htmlCharacter(std::string_view name);

struct HtmlPrefix {
  std::size_t length = 0;  ///< of the name; 0: none
  std::string_view character;
};
/// The longest name at the start of `text` that HTML reads without a semicolon.
HtmlPrefix htmlLegacyPrefix(std::string_view text);

}  // namespace ambervane

#endif  // AMBERVANE_MAILCORE_HTML_ENTITIES_H_
