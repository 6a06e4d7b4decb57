#ifndef AMBERVANE_MAILFORMATS_ACCESS_PROBLEM_H_
#define AMBERVANE_MAILFORMATS_ACCESS_PROBLEM_H_

#include <optional>
#include <string>
#include <string_view>

#include "base/localized_message.h"

namespace ambervane {

/// Whether an errno value says that access was refused; every other failure is for the reader to
/// report.
bool isPermissionDenied(int error) noexcept;

/// A path the system refuses to let this program read, and what the user can do about it.
struct AccessProblem {
  enum class Remedy { fullDiskAccess, filesAndFolders, filePermissions };

  std::string path;  ///< UTF-8, for display
  Remedy remedy = Remedy::filePermissions;

  LocalizedMessage explanation() const;
  /// The pane of the macOS system settings to open; absent when none would help.
  std::optional<std::string_view> settingsURL() const noexcept;

  /// What helps with a refused `path` on this system.
  static Remedy remedyFor(std::string_view path) noexcept;
  /// What helps on macOS, where privacy settings guard some folders of a user's `home`.
  static Remedy macosRemedyFor(std::string_view path, std::string_view home) noexcept;

  friend bool operator==(const AccessProblem&, const AccessProblem&) = default;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_ACCESS_PROBLEM_H_
