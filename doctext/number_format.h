#ifndef AMBERVANE_DOCTEXT_NUMBER_FORMAT_H_
#define AMBERVANE_DOCTEXT_NUMBER_FORMAT_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "doctext/format_section.h"

namespace ambervane {

/// How a spreadsheet shows the numbers of a cell.
class NumberFormat {
 public:
  /// `code` is the format's code, such as "#,##0.00"; any text will do.
  explicit NumberFormat(std::string_view code) : sections_(parseNumberFormat(code)) {}

  /// The words by which a number can be found: as the format shows it, and plainly where that
  /// differs. A date is given as shown but with months as numbers, as "31.12.2024" and as
  /// "2024-12-31". `stored` is the number as the file has it; what is no number comes back as it
  /// is. With `from1904` days count from that year.
  std::string words(std::string_view stored, bool from1904) const;

  /// The code of a format that files name by its number only; empty where that means "General".
  static std::string_view builtInCode(std::int64_t number) noexcept;

 private:
  std::vector<FormatSection> sections_;  ///< never empty
};

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_NUMBER_FORMAT_H_
