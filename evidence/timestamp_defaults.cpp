#include "evidence/timestamp_defaults.h"

#include <algorithm>
#include <cstdlib>

#include "base/text.h"

namespace ambervane {
namespace {

/// Whether every byte may stand in a URL (RFC 3986). Whether anyone can be asked there shows when
/// it is tried, and is recorded then.
bool isUrlText(std::string_view text) {
  constexpr std::string_view kNever = "\"<>\\^`{|}";
  return !text.empty() && std::all_of(text.begin(), text.end(), [=](char c) {
    return c > ' ' && c < '\x7f' && kNever.find(c) == std::string_view::npos;
  });
}

}  // namespace

bool disablesTimestamps(const char* value) noexcept {
  return value != nullptr && std::string_view(value) == "1";
}

bool TimestampDefaults::disabledByEnvironment() {
  // Nothing here sets the environment while threads run.
  static const bool kDisabled =
      disablesTimestamps(std::getenv("AMBERVANE_NO_TIMESTAMP"));  // NOLINT(concurrency-mt-unsafe)
  return kDisabled;
}

const std::vector<std::string>& TimestampDefaults::authorities() {
  static const std::vector<std::string> kAuthorities =
      disabledByEnvironment()
          ? std::vector<std::string>()
          : std::vector<std::string>{std::string(kSwissSign), std::string(kDigicert),
                                     std::string(kFreeTSA)};
  return kAuthorities;
}

std::optional<std::string> TimestampDefaults::authority() {
  if (authorities().empty()) return std::nullopt;
  return authorities().front();
}

std::vector<std::string> timestampAuthorities(const std::optional<std::string>& setting) {
  if (setting == "none") return {};
  const std::string list = setting.value_or("");
  std::vector<std::string> urls;
  for (const std::string_view part : split(list, ',')) {
    if (const std::string_view url = trim(part); isUrlText(url)) urls.emplace_back(url);
  }
  return urls.empty() ? TimestampDefaults::authorities() : urls;
}

}  // namespace ambervane
