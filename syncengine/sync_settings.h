#ifndef AMBERVANE_SYNCENGINE_SYNC_SETTINGS_H_
#define AMBERVANE_SYNCENGINE_SYNC_SETTINGS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/date.h"
#include "imapkit/imap_server.h"
#include "store/mail_archive.h"
#include "syncengine/sync_scope.h"

namespace ambervane {

/// What a run needs apart from the secret, kept with its account so that a later run without
/// anybody present has the same scope. That a certificate was not checked is not kept: it is
/// decided by a person each time.
struct SyncSettings {
  std::string host;
  std::uint16_t port = 993;
  bool useTLS = true;
  std::string username;
  std::vector<std::string> includeFolders, excludeFolders, exactFolders;
  bool sinceEnabled = false;
  std::optional<Date> since;
  bool beforeEnabled = false;
  std::optional<Date> before;

  SyncSettings() = default;
  SyncSettings(const IMAPServer& server, const std::string& user, const SyncScope& scope);

  IMAPServer server() const;
  SyncScope scope() const;
  /// JSON; times in ISO 8601.
  std::string encode() const;
  /// Absent for what `encode` does not write. Keys it does not know are passed over.
  static std::optional<SyncSettings> decode(const std::string& json);

  /// Keeps the settings with an account that exists. Throws SQLiteError.
  void save(MailArchive& archive, const std::string& accountName) const;
  /// Absent when there are none that can be read. Throws SQLiteError.
  static std::optional<SyncSettings> load(MailArchive& archive, const std::string& accountName);
  friend bool operator==(const SyncSettings&, const SyncSettings&) = default;
};

}  // namespace ambervane

#endif  // AMBERVANE_SYNCENGINE_SYNC_SETTINGS_H_
