#ifndef AMBERVANE_DOCTEXT_SHOWN_NUMBER_H_
#define AMBERVANE_DOCTEXT_SHOWN_NUMBER_H_

#include <optional>
#include <string>
#include <string_view>

#include "doctext/format_section.h"

namespace ambervane {

/// A finite decimal number that is all of `text`.
std::optional<double> parseDecimal(std::string_view text) noexcept;
/// With the 15 digits that spreadsheets compute with, never in exponent form.
std::string generalNumber(double value);

/// A number of at least 0 as a section with places for digits shows it, then without grouping and
/// words if that is different.
std::string shownNumber(const FormatSection& section, double value);

/// Days that a cell can count, from 0 to the end of the year 9999.
bool isCellDate(double serial) noexcept;
/// A date, for which `isCellDate` holds, as a section for dates shows it and in two usual forms.
std::string shownDate(const FormatSection& section, double serial, bool from1904);

/// Appends a form to others unless it is there already.
void addForm(std::string& forms, std::string_view form);

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_SHOWN_NUMBER_H_
