#include "doctext/number_format.h"

#include <cmath>

#include "base/text.h"
#include "doctext/shown_number.h"

namespace ambervane {
namespace {

/// From here on numbers are shown with powers of ten, as they are stored.
constexpr double kShownWithPowers = 1e21;

struct BuiltIn {
  std::int64_t number;
  std::string_view code;
};
/// ECMA-376 part 1, section 18.8.30. Those whose form depends on where the reader sits are given as
/// in Europe.
constexpr BuiltIn kBuiltIns[] = {
    {1, "0"},
    {2, "0.00"},
    {3, "#,##0"},
    {4, "#,##0.00"},
    {9, "0%"},
    {10, "0.00%"},
    {14, "dd.mm.yyyy"},
    {15, "d-mmm-yy"},
    {16, "d-mmm"},
    {17, "mmm-yy"},
    {18, "h:mm AM/PM"},
    {19, "h:mm:ss AM/PM"},
    {20, "h:mm"},
    {21, "h:mm:ss"},
    {22, "dd.mm.yyyy h:mm"},
    {37, "#,##0;-#,##0"},
    {38, "#,##0;-#,##0"},
    {39, "#,##0.00;-#,##0.00"},
    {40, "#,##0.00;-#,##0.00"},
    {45, "mm:ss"},
    {46, "[h]:mm:ss"},
    {47, "mm:ss"},
};

}  // namespace

std::string_view NumberFormat::builtInCode(std::int64_t number) noexcept {
  for (const BuiltIn& entry : kBuiltIns) {
    if (entry.number == number) return entry.code;
  }
  return {};
}

std::string NumberFormat::words(std::string_view stored, bool from1904) const {
  const auto number = parseDecimal(trim(stored));
  if (!number || std::fabs(*number) >= kShownWithPowers) return std::string(stored);
  const bool isNegative = *number < 0;
  std::size_t index = 0;
  if (isNegative && sections_.size() >= 2) index = 1;
  if (*number == 0 && sections_.size() >= 3) index = 2;
  const FormatSection& section = sections_[index];
  if (section.isDate && isCellDate(*number)) return shownDate(section, *number, from1904);
  if (section.isGeneral || section.isDate) return generalNumber(*number);
  // A section of its own for what is negative shows that by itself.
  const std::string sign = isNegative && index == 0 ? "-" : "";
  return sign + shownNumber(section, std::fabs(*number));
}

}  // namespace ambervane
