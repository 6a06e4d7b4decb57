#include "query/filter_value.h"

#include <array>

#include "query/value_reading.h"

namespace ambervane::FilterValue {

std::optional<Date> date(std::string_view text) {
  static constexpr std::array kPatterns = {"yyyy-MM-dd", "dd.MM.yyyy", "d.M.yyyy", "yyyy/MM/dd",
                                           "MM/dd/yyyy", "yyyy-MM",    "yyyy"};
  return readDate(text, kPatterns);
}

std::optional<std::int64_t> size(std::string_view text) {
  static constexpr std::array<SizeUnit, 7> kUnits = {{{"gb", 1073741824},
                                                      {"mb", 1048576},
                                                      {"kb", 1024},
                                                      {"g", 1073741824},
                                                      {"m", 1048576},
                                                      {"k", 1024},
                                                      {"b", 1}}};
  return readSize(text, kUnits);
}

}  // namespace ambervane::FilterValue
