#include "base/report_language.h"

#include <cstdlib>
#include <optional>

#include "base/message_table.h"
#include "base/text.h"

namespace ambervane {
namespace {

struct Facts {
  std::string_view name;
  std::string_view code;
};

constexpr std::array<Facts, kReportLanguages.size()> kFacts = {{
    {"english", "en"},
    {"german", "de"},
    {"french", "fr"},
    {"italian", "it"},
    {"spanish", "es"},
}};

std::optional<ReportLanguage> languageOfCode(std::string_view code) noexcept {
  for (const ReportLanguage language : kReportLanguages) {
    if (kFacts[static_cast<std::size_t>(language)].code == code) return language;
  }
  return std::nullopt;
}

/// The part of a locale such as "de_CH.UTF-8" that names the language.
std::string_view languagePart(std::string_view locale) noexcept {
  return locale.substr(0, locale.find_first_of("_-.@"));
}

}  // namespace

std::string_view rawValue(ReportLanguage language) noexcept {
  return kFacts[static_cast<std::size_t>(language)].name;
}

std::string_view languageCode(ReportLanguage language) noexcept {
  return kFacts[static_cast<std::size_t>(language)].code;
}

ReportLanguage matchingLanguage(std::string_view code) noexcept {
  return languageOfCode(code).value_or(ReportLanguage::english);
}

ReportLanguage currentReportLanguage(const std::function<const char*(const char*)>& environment) {
  const auto value = [&environment](const char* name) {
    const char* text = environment(name);
    return std::string_view(text == nullptr ? "" : text);
  };
  std::string_view locale;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (locale.empty()) locale = value(name);
  }
  const std::string_view part = languagePart(locale);
  if (part.empty() || part == "C" || part == "POSIX") return ReportLanguage::english;
  for (const std::string_view preferred : splitOmittingEmpty(value("LANGUAGE"), ":")) {
    if (const auto language = languageOfCode(languagePart(preferred))) return *language;
  }
  return matchingLanguage(part);
}

ReportLanguage currentReportLanguage() {
  // Nothing in this program changes its environment.
  return currentReportLanguage(
      [](const char* name) -> const char* { return std::getenv(name); });  // NOLINT
}

std::string localized(const LocalizedMessage& message, ReportLanguage language) {
  const auto& table = messageTable(language);
  const auto found = table.find(message.format);
  if (found == table.end()) return message.text();
  return LocalizedMessage{std::string(found->second), message.arguments}.text();
}

std::string localized(std::string_view text, ReportLanguage language) {
  return localized(LocalizedMessage{std::string(text), {}}, language);
}

}  // namespace ambervane
