#ifndef AMBERVANE_EVIDENCE_TIMESTAMP_DEFAULTS_H_
#define AMBERVANE_EVIDENCE_TIMESTAMP_DEFAULTS_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ambervane {

/// The authorities that are asked where an archive names none.
struct TimestampDefaults {
  static constexpr std::string_view kSwissSign = "http://tsa.swisssign.net";
  static constexpr std::string_view kDigicert = "http://timestamp.digicert.com";
  static constexpr std::string_view kFreeTSA = "https://freetsa.org/tsr";

  /// Whether AMBERVANE_NO_TIMESTAMP is exactly "1". Read once in a process.
  static bool disabledByEnvironment();
  /// The three in the order in which they are asked, or none when the environment says so.
  static const std::vector<std::string>& authorities();
  /// The first of them.
  static std::optional<std::string> authority();
};

/// Whether this value of AMBERVANE_NO_TIMESTAMP (null: not set) turns the defaults off.
bool disablesTimestamps(const char* value) noexcept;

/// The authorities an archive asks under its setting `timestamp_authority`: URLs divided by commas,
/// or "none". The defaults where it is absent, empty, or holds nothing that could be a URL.
std::vector<std::string> timestampAuthorities(const std::optional<std::string>& setting);

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_TIMESTAMP_DEFAULTS_H_
