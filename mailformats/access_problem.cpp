#include "mailformats/access_problem.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>

namespace ambervane {
namespace {

/// Whether `path` is `home` + `folder` or lies below it.
bool isInside(std::string_view path, std::string_view home, std::string_view folder) noexcept {
  if (home.empty() || !path.starts_with(home)) return false;
  path.remove_prefix(home.size());
  if (!path.starts_with(folder)) return false;
  path.remove_prefix(folder.size());
  return path.empty() || path.front() == '/';
}

template <std::size_t count>
bool isInsideAny(std::string_view path, std::string_view home,
                 const std::array<std::string_view, count>& folders) noexcept {
  return std::any_of(folders.begin(), folders.end(),
                     [&](std::string_view folder) { return isInside(path, home, folder); });
}

}  // namespace

bool isPermissionDenied(int error) noexcept { return error == EACCES || error == EPERM; }

LocalizedMessage AccessProblem::explanation() const {
  switch (remedy) {
    case Remedy::filesAndFolders:
      return {
          "macOS does not let this program read %@. Allow it in System Settings > Privacy & "
          "Security > Files and Folders, then run it again.",
          {path}};
    case Remedy::fullDiskAccess:
      return {
          "macOS does not let this program read %@. Give the program that runs it Full Disk "
          "Access in System Settings > Privacy & Security > Full Disk Access, then run it "
          "again.",
          {path}};
    case Remedy::filePermissions:
      break;
  }
  return {"%@ cannot be read: its permissions do not allow it.", {path}};
}

std::optional<std::string_view> AccessProblem::settingsURL() const noexcept {
  switch (remedy) {
    case Remedy::filesAndFolders:
      return "x-apple.systempreferences:com.apple.preference.security?Privacy_FilesAndFolders";
    case Remedy::fullDiskAccess:
      return "x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles";
    case Remedy::filePermissions:
      break;
  }
  return std::nullopt;
}

AccessProblem::Remedy AccessProblem::remedyFor([[maybe_unused]] std::string_view path) noexcept {
#ifdef __APPLE__
  const char* const home = std::getenv("HOME");
  return macosRemedyFor(path, home == nullptr ? "" : home);
#else
  // Elsewhere nothing but its permissions can refuse a file.
  return Remedy::filePermissions;
#endif
}

AccessProblem::Remedy AccessProblem::macosRemedyFor(std::string_view path,
                                                    std::string_view home) noexcept {
  static constexpr std::array<std::string_view, 5> kGuardedByFullDiskAccess = {
      "/Library/Mail", "/Library/Containers", "/Library/Group Containers", "/Library/Messages",
      "/Library/Safari"};
  static constexpr std::array<std::string_view, 4> kGuardedByFilesAndFolders = {
      "/Desktop", "/Documents", "/Downloads", "/Library/Mobile Documents"};
  if (isInsideAny(path, home, kGuardedByFullDiskAccess)) return Remedy::fullDiskAccess;
  if (isInsideAny(path, home, kGuardedByFilesAndFolders)) return Remedy::filesAndFolders;
  if (path.starts_with("/Volumes/")) return Remedy::filesAndFolders;
  return Remedy::filePermissions;
}

}  // namespace ambervane
