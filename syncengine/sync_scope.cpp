#include "syncengine/sync_scope.h"

#include <algorithm>
#include <utility>

#include "base/calendar.h"
#include "base/text.h"

namespace ambervane {
namespace {

bool containsAny(const std::string& path, const std::vector<std::string>& parts) {
  return std::any_of(parts.begin(), parts.end(),
                     [&](const std::string& part) { return containsIgnoringCase(path, part); });
}

/// INBOX is the one name that IMAP takes in any case (RFC 3501 section 5.1).
bool isPath(const IMAPFolder& folder, const std::string& text) {
  return composed(folder.path) == composed(text) ||
         (folder.isInbox() && asciiEqualIgnoringCase(text, "INBOX"));
}

const IMAPFolder* find(const std::vector<IMAPFolder>& listed, const std::string& text) {
  const auto found = std::find_if(listed.begin(), listed.end(),
                                  [&](const IMAPFolder& folder) { return isPath(folder, text); });
  return found == listed.end() ? nullptr : &*found;
}

}  // namespace

bool SyncScope::takes(const IMAPFolder& folder) const {
  if (!folder.isSelectable()) return false;
  if (!exactFolders.empty()) {
    return std::any_of(exactFolders.begin(), exactFolders.end(),
                       [&](const std::string& text) { return isPath(folder, text); });
  }
  if (skipVirtualFolders && folder.specialUse() == "all") return false;
  if (containsAny(folder.path, excludeFolders)) return false;
  return includeFolders.empty() || containsAny(folder.path, includeFolders);
}

std::string SyncScope::selection() const {
  std::string text;
  if (since) text = "since " + formatDate(*since, "yyyy-MM-dd");
  if (before) text += (text.empty() ? "before " : " before ") + formatDate(*before, "yyyy-MM-dd");
  return text;
}

SyncScope SyncScope::resolved(const std::vector<IMAPFolder>& listed) const {
  SyncScope scope = *this;
  scope.includesMayBePaths = false;
  if (!includesMayBePaths || !exactFolders.empty()) return scope;
  std::vector<std::string> paths;
  for (const std::string& text : includeFolders) {
    const IMAPFolder* folder = find(listed, text);
    if (folder == nullptr) return scope;
    paths.push_back(folder->path);
  }
  scope.exactFolders = std::move(paths);
  scope.includeFolders.clear();
  return scope;
}

std::vector<std::string> SyncScope::notListed(const std::vector<IMAPFolder>& listed) const {
  std::vector<std::string> rest;
  for (const std::string& text : exactFolders) {
    if (find(listed, text) == nullptr) rest.push_back(text);
  }
  return rest;
}

}  // namespace ambervane
