#ifndef AMBERVANE_BASE_REPORT_LANGUAGE_H_
#define AMBERVANE_BASE_REPORT_LANGUAGE_H_

#include <array>
#include <functional>
#include <string>
#include <string_view>

#include "base/localized_message.h"

namespace ambervane {

/// A language reports are written in.
enum class ReportLanguage { english, german, french, italian, spanish };

inline constexpr std::array kReportLanguages = {ReportLanguage::english, ReportLanguage::german,
                                                ReportLanguage::french, ReportLanguage::italian,
                                                ReportLanguage::spanish};

/// "english" and so on, as recorded.
std::string_view rawValue(ReportLanguage language) noexcept;
/// Its two-letter code.
std::string_view languageCode(ReportLanguage language) noexcept;
/// The language of a two-letter code ("en", "de", "fr", "it", "es"); English for anything else.
ReportLanguage matchingLanguage(std::string_view code) noexcept;
/// The first language among what the environment prefers (LC_ALL, else LC_MESSAGES, else LANG, in
/// front of them the list in LANGUAGE unless the locale is "C") that reports are written in, else
/// English. `environment` gives a variable's value, null for none.
ReportLanguage currentReportLanguage(
    const std::function<const char*(const char* name)>& environment);
ReportLanguage currentReportLanguage();

/// The text in `language`: the format is looked up in that language's table by the English one, and
/// stays English where the table does not have it. Safe from any thread.
std::string localized(const LocalizedMessage& message, ReportLanguage language);
std::string localized(std::string_view text, ReportLanguage language);

}  // namespace ambervane

#endif  // AMBERVANE_BASE_REPORT_LANGUAGE_H_
