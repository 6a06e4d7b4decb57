#ifndef AMBERVANE_DOCTEXT_FORMAT_SECTION_H_
#define AMBERVANE_DOCTEXT_FORMAT_SECTION_H_

#include <string>
#include <string_view>
#include <vector>

namespace ambervane {

/// One piece of a spreadsheet's number format.
struct FormatToken {
  enum class Kind {
    literal,
    digit,  ///< a place for a digit: 0, # or ?
    point,
    comma,
    percent,
    date,     ///< letters for a part of a date or time
    elapsed,  ///< letters for a count of hours, minutes or seconds
    halfDay,  ///< AM or PM
  };
  Kind kind = Kind::literal;
  std::string text;  ///< what stands there; letters of dates and counts in lower case
  /// Whether it is the part of a date or time that `letter` stands for.
  bool isTime(char letter) const noexcept {
    return (kind == Kind::date || kind == Kind::elapsed) && text[0] == letter;
  }
  friend bool operator==(const FormatToken&, const FormatToken&) = default;
};

/// What stands between two semicolons of a number format: how some numbers are shown.
struct FormatSection {
  std::vector<FormatToken> tokens;
  bool isDate = false;
  /// Numbers are shown as they are, or in a way nobody searches for: powers of ten, fractions,
  /// words instead of the number.
  bool isGeneral = false;
};

/// The sections of a format's code (ECMA-376 part 1, section 18.8.31), at least one. Total, linear.
std::vector<FormatSection> parseNumberFormat(std::string_view code);

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_FORMAT_SECTION_H_
