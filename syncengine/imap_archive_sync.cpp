#include "syncengine/imap_archive_sync.h"

#include <exception>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "base/text.h"
#include "store/archive_error.h"
#include "store/catalog_sync_state.h"
#include "store/recorded_change.h"
#include "syncengine/folder_collection.h"
#include "syncengine/sync_run.h"
#include "syncengine/sync_settings.h"

namespace ambervane {
namespace {

const char* yesOrNo(bool value) { return value ? "yes" : "no"; }

/// Whether two names sign in to one mailbox, as far as that can be told: some servers take the part
/// before the "@" alone.
bool isSameUser(std::string_view a, std::string_view b) {
  const auto isLocalPartOf = [](std::string_view part, std::string_view whole) {
    return whole.size() > part.size() && whole[part.size()] == '@' &&
           asciiEqualIgnoringCase(whole.substr(0, part.size()), part);
  };
  return asciiEqualIgnoringCase(a, b) || isLocalPartOf(a, b) || isLocalPartOf(b, a);
}

/// The steps of a run around its folders.
class Collection {
 public:
  Collection(SyncRun& run, const IMAPServer& server, const IMAPCredentials& credentials)
      : run_(run),
        archive_(run.archive),
        states_(run.archive.catalog()),
        server_(server),
        credentials_(credentials),
        username_(credentials.username) {}

  void collect() {
    begin();
    try {
      signIn();
      const std::vector<IMAPFolder> folders = chooseFolders();
      for (const IMAPFolder& folder : folders) {
        run_.progress.cancelled = run_.progress.cancelled || run_.shouldCancel();
        if (run_.progress.cancelled) break;
        collectOne(folder);
      }
    } catch (const IMAPError& error) {
      if (!error.is<IMAPError::Cancelled>()) {
        finishLog("broken off: " + std::string(error.what()));
        throw;
      }
      run_.progress.cancelled = true;
    }
    finish();
  }

 private:
  void begin() {
    logID_ = archive_.catalog().beginIngest("imap://" + server_.host);
    archive_.journal().append(
        AuditAction::syncStarted, run_.accountName,
        {{"host", server_.host},
         {"port", std::to_string(server_.port)},
         {"tls", yesOrNo(server_.useTLS)},
         {"untrusted_certificate_allowed", yesOrNo(server_.allowUntrustedCertificate)},
         {"access_mode", "read-only (EXAMINE + BODY.PEEK)"}});
    run_.accountID = archive_.catalog().upsertAccount(
        run_.accountName, std::string(kImapAccountKind), server_.host, username_, std::nullopt);
    saveSettings();
  }

  void saveSettings() {
    SyncSettings(server_, username_, run_.scope).save(archive_, run_.accountName);
  }

  void signIn() {
    run_.client.connect();
    run_.client.login(credentials_);
    if (const auto accepted = run_.client.acceptedUsername(); accepted && *accepted != username_) {
      correctAddress(*accepted);
    }
    noteCollectedFrom();
  }

  void correctAddress(const std::string& accepted) {
    const std::string former = std::exchange(username_, accepted);
    RecordedChange change(archive_);
    states_.setUsername(run_.accountID, accepted);
    saveSettings();
    archive_.journal().append(
        AuditAction::policyChanged, run_.accountName,
        {{"action", "address corrected"},
         {"from", former},
         {"to", accepted},
         {"note", "the server accepted this form of the address and refused the other"}});
    change.finish();
  }

  /// Folder states belong to one mailbox. Another one under the same account's name may even have
  /// the same UIDVALIDITY, and its mail would be taken for held.
  void noteCollectedFrom() {
    const std::string now = asciiLowercase(server_.host + " " + username_);
    const std::string before = states_.collectedFrom(run_.accountID);
    if (now == before) return;
    const auto host = [](const std::string& text) { return text.substr(0, text.find(' ')); };
    const auto user = [](const std::string& text) { return text.substr(text.find(' ') + 1); };
    archive_.catalog().atomically([&] {
      states_.setCollectedFrom(run_.accountID, now);
      if (before.empty() || (host(now) == host(before) && isSameUser(user(now), user(before)))) {
        return;
      }
      states_.forgetNumbering(run_.accountID);
      run_.remark("this account was collected from " + user(before) + " at " + host(before) +
                  " before; every folder is looked at anew");
    });
  }

  std::vector<IMAPFolder> chooseFolders() {
    const std::vector<IMAPFolder> listed = run_.client.listFolders();
    if (run_.scope.includesMayBePaths) {
      run_.scope = run_.scope.resolved(listed);
      saveSettings();
    }
    for (const std::string& path : run_.scope.notListed(listed)) {
      run_.remark(path + ": no such folder on the server");
    }
    std::vector<IMAPFolder> chosen;
    for (const IMAPFolder& folder : listed) {
      if (run_.scope.takes(folder)) chosen.push_back(folder);
    }
    if (chosen.empty()) run_.remark("no folder on the server is among those to be collected");
    run_.progress.foldersTotal = static_cast<std::int64_t>(chosen.size());
    run_.report();
    return chosen;
  }

  void collectOne(const IMAPFolder& folder) {
    try {
      run_.progress.cancelled = !collectFolder(run_, folder);
    } catch (const std::exception& error) {
      ++run_.progress.failed;
      run_.remark(folder.path + ": " + error.what());
    }
  }

  void finish() {
    SyncProgress& progress = run_.progress;
    archive_.flushSolidBlock();
    run_.countBytesOut();
    if (progress.cancelled) progress.note = "cancelled";
    std::map<std::string, std::string> details = {
        {"folders", std::to_string(progress.foldersDone)},
        {"stored", std::to_string(progress.stored)},
        {"duplicates", std::to_string(progress.duplicates)},
        {"failed", std::to_string(progress.failed)},
        {"bytes_in", std::to_string(progress.bytesIn)}};
    if (progress.cancelled) details["note"] = "cancelled";
    RecordedChange change(archive_);
    states_.noteSync(run_.accountID, archive_.now());
    finishLog(progress.cancelled ? std::optional<std::string>("cancelled") : std::nullopt);
    archive_.journal().append(AuditAction::syncFinished, run_.accountName, details);
    change.finish();
    try {
      archive_.sealNow();
    } catch (const TranslatableError& error) {
      run_.remark(std::string("the journal could not be sealed: ") + error.what());
    }
    run_.report();
  }

  void finishLog(const std::optional<std::string>& note) {
    const SyncProgress& progress = run_.progress;
    archive_.catalog().finishIngest(logID_, progress.stored, progress.duplicates, progress.failed,
                                    progress.bytesIn, progress.bytesOut, note);
  }

  SyncRun& run_;
  MailArchive& archive_;
  CatalogSyncState states_;
  const IMAPServer& server_;
  const IMAPCredentials& credentials_;
  std::string username_;
  std::int64_t logID_ = 0;
};

}  // namespace

IMAPArchiveSync::IMAPArchiveSync(MailArchive& archive, IMAPServer server,
                                 IMAPCredentials credentials, std::string accountName)
    : archive_(archive),
      server_(std::move(server)),
      credentials_(std::move(credentials)),
      accountName_(std::move(accountName)) {}

SyncProgress IMAPArchiveSync::run(const SyncScope& scope, const std::function<bool()>& shouldCancel,
                                  const SyncProgressHandler& progress) {
  if (archive_.readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  const std::function<bool()> mayCancel = shouldCancel ? shouldCancel : [] { return false; };
  IMAPClient client(server_, IMAPAccessMode::readOnly, mayCancel);
  SyncRun run{.archive = archive_,
              .client = client,
              .accountName = accountName_,
              .shouldCancel = mayCancel,
              .handler = progress,
              .known = KnownDigests(archive_.catalog().database().path()),
              .packBytesAtStart = archive_.packs().bytesAppended()};
  run.scope = scope;
  run.progress.throughput = ThroughputMeter(archive_.now());
  try {
    Collection(run, server_, credentials_).collect();
  } catch (...) {
    client.logout();
    throw;
  }
  client.logout();
  return std::move(run.progress);
}

}  // namespace ambervane
