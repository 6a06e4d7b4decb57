#ifndef AMBERVANE_CLI_DISPLAY_COLUMNS_H_
#define AMBERVANE_CLI_DISPLAY_COLUMNS_H_

#include <cstddef>
#include <string>
#include <string_view>

// Text in columns of a terminal. What a person takes for one character (a letter with its accents,
// an emoji of several parts) is never cut in two; wide East Asian characters and emoji take two
// columns, accents none. Texts are well-formed UTF-8 without control characters.

namespace ambervane {

std::size_t displayWidth(std::string_view text);

/// The beginning of `text` that fits into `columns`.
std::string_view cutToWidth(std::string_view text, std::size_t columns);
/// Cut to `columns` and filled up to them with blanks.
std::string fitted(std::string_view text, std::size_t columns);
/// Filled up to `columns` with blanks, never cut.
std::string padded(std::string_view text, std::size_t columns);

/// The first `count` characters as a person counts them.
std::string_view cutToCharacters(std::string_view text, std::size_t count);

}  // namespace ambervane

#endif  // AMBERVANE_CLI_DISPLAY_COLUMNS_H_
