#ifndef AMBERVANE_BASE_TEXT_H_
#define AMBERVANE_BASE_TEXT_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ambervane {

/// ASCII blanks: space, tab, LF, VT, FF, CR.
bool isAsciiSpace(char c) noexcept;
bool isAsciiDigit(char c) noexcept;
/// Whether all bytes are below 128.
bool isAscii(std::string_view text) noexcept;
/// Without Unicode white space and line ends at both ends; `text` is UTF-8.
std::string_view trim(std::string_view text) noexcept;
/// Without the bytes of `set` at both ends.
std::string_view trimOf(std::string_view text, std::string_view set) noexcept;
/// Only A to Z become lower case; bytes above 127 stay.
std::string asciiLowercase(std::string_view text);
/// Only a to z become upper case; bytes above 127 stay.
std::string asciiUppercase(std::string_view text);
bool asciiEqualIgnoringCase(std::string_view a, std::string_view b) noexcept;
/// Unicode lower case of UTF-8 text, without a locale. Ill-formed bytes become U+FFFD.
std::string lowercase(std::string_view text);
/// `text` in composed form (Unicode NFC), so that "ö" is one character however it was written.
std::string composed(std::string_view text);
/// Whether `text` contains `part` after full case folding and canonical composition.
bool containsIgnoringCase(std::string_view text, std::string_view part);

/// Pieces between the bytes of `separators`; empty pieces are left out.
std::vector<std::string_view> splitOmittingEmpty(std::string_view text,
                                                 std::string_view separators);
/// Pieces between each `separator`; n separators give n + 1 pieces.
std::vector<std::string_view> split(std::string_view text, char separator);
std::string join(const std::vector<std::string>& parts, std::string_view separator);

/// A whole signed decimal number; absent for anything else, an overflow included.
std::optional<std::int64_t> parseInteger(std::string_view text) noexcept;

bool isValidUtf8(std::string_view text) noexcept;
/// `text` with each maximal ill-formed sequence replaced by U+FFFD; unchanged when well formed.
std::string repairedUtf8(std::string_view text);
/// The code point at `at`, which moves behind it. An ill-formed byte yields U+FFFD and moves by
/// one.
char32_t nextCodePoint(std::string_view text, std::size_t& at) noexcept;
void appendUtf8(std::string& out, char32_t codePoint);
/// Unicode property White_Space.
bool isUnicodeSpace(char32_t c) noexcept;
/// Each byte as the Unicode scalar of its value.
std::string latin1ToUtf8(std::string_view bytes);
/// At most the first `count` code points of well-formed UTF-8.
std::string_view prefixCharacters(std::string_view text, std::size_t count) noexcept;
std::size_t characterCount(std::string_view text) noexcept;

/// For a terminal line: ill-formed UTF-8 repaired, control characters (line ends included) shown as
/// "\n", "\t" or "\xNN", so that a name from outside can neither break a line nor steer a terminal.
std::string printable(std::string_view text);

/// `text` as a JSON string with its quotes: control characters, quotes and backslashes escaped, "/"
/// as "\/" when `escapeSlash`. `text` must be well-formed UTF-8.
std::string jsonString(std::string_view text, bool escapeSlash);
/// The shortest decimal that reads back as `value`, never in exponent form, no trailing ".0".
std::string decimalNumber(double value);

/// A size for people: "512 B", "1.5 KB", "3.2 GB"; units of 1024, up to TB.
std::string humanBytes(std::int64_t bytes);

}  // namespace ambervane

#endif  // AMBERVANE_BASE_TEXT_H_
