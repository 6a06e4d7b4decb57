#include "store/merge_accounts.h"

#include <utility>

#include "base/json.h"

namespace ambervane {
namespace {

constexpr const char* kUnfiledKind = "archive";
/// In place of a name: the account of messages that never lay in a mailbox.
constexpr const char* kUnfiled = "";
constexpr const char* kHasUnfiled =
    "SELECT 1 FROM message m WHERE erased = 0 AND NOT EXISTS (SELECT 1 FROM message_folder mf JOIN "
    "folder f ON f.id = mf.folder_id JOIN account a ON a.id = f.account_id WHERE mf.message_id = "
    "m.id) LIMIT 1";

std::string detail(const AuditEntry& entry, const char* key) {
  const auto found = entry.details.find(key);
  return found == entry.details.end() ? std::string() : found->second;
}

}  // namespace

MergeAccounts::MergeAccounts(MailArchive& target, MailArchive& source)
    : target_(target), source_(source), accounts_(source.catalog().accounts()) {
  for (const AccountRow& account : target.catalog().accounts()) taken_.insert(account.name);
  std::map<std::string, std::string> wanted;
  for (const AccountRow& account : accounts_) wanted[account.name] = account.name;
  if (source.catalog().database().scalar(kHasUnfiled)) wanted[kUnfiled] = source.manifest().name;
  bool clashes = false;
  for (const auto& [account, name] : wanted) clashes = clashes || taken_.contains(name);
  const auto earlier = clashes ? earlierNames() : std::map<std::string, std::string>();
  for (const auto& [account, name] : wanted) {
    const auto found = earlier.find(account);
    names_[account] = found == earlier.end() ? uniqueAccountName(name) : found->second;
    taken_.insert(names_[account]);
  }
}

std::map<std::string, std::string> MergeAccounts::earlierNames() const {
  std::map<std::string, std::string> names;
  target_.journal().forEachEntry([&](const AuditEntry& entry) {
    if (entry.action != AuditAction::policyChanged || entry.subject != "merge" ||
        detail(entry, "source") != source_.manifest().archiveID) {
      return true;
    }
    try {
      const std::string text = detail(entry, "accounts");
      if (text.empty()) return true;
      for (const auto& [account, name] :
           decodeJson(parseJson(text, "accounts"), "accounts", [](const nlohmann::json& json) {
             return json.get<std::map<std::string, std::string>>();
           })) {
        names[account] = name;
      }
    } catch (const JsonError&) {
      // Accounts are made anew then; their messages are found all the same.
    }
    return true;
  });
  return names;
}

std::string MergeAccounts::uniqueAccountName(const std::string& sourceName) const {
  if (!taken_.contains(sourceName)) return sourceName;
  const std::string name = sourceName + " (" + source_.manifest().name + ")";
  std::string unique = name;
  for (int number = 2; taken_.contains(unique); ++number) {
    unique = name + " " + std::to_string(number);
  }
  return unique;
}

std::string MergeAccounts::record() const { return compactJson(names_); }

std::map<std::int64_t, MailboxRef> MergeAccounts::make() {
  Catalog& catalog = target_.catalog();
  std::map<std::int64_t, MailboxRef> mailboxes;
  // The numbers are a server's, and hold where no collection of this archive has numbered anew.
  const auto mailbox = [&](std::int64_t accountID, const std::string& account,
                           const std::string& path, const std::string& delimiter) {
    const std::int64_t id = catalog.upsertFolder(accountID, path, delimiter);
    const bool isNumbered =
        catalog.database()
            .scalar("SELECT 1 FROM folder WHERE id = ? AND uid_validity IS NOT NULL", {id})
            .has_value();
    return MailboxRef{id, path, account, !isNumbered};
  };
  for (const AccountRow& account : accounts_) {
    const std::string& name = names_.at(account.name);
    const std::int64_t id = catalog.upsertAccount(name, account.kind, account.host,
                                                  account.username, account.sourcePath);
    for (const FolderRow& folder : source_.catalog().folders(account.id)) {
      mailboxes.emplace(folder.id, mailbox(id, name, folder.path, folder.delimiter));
    }
  }
  if (const auto unfiled = names_.find(kUnfiled); unfiled != names_.end()) {
    const std::int64_t id = catalog.upsertAccount(unfiled->second, kUnfiledKind, std::nullopt,
                                                  std::nullopt, std::nullopt);
    mailboxes.emplace(kNoFolder,
                      mailbox(id, unfiled->second, "Imported/" + source_.manifest().name, "/"));
  }
  return mailboxes;
}

}  // namespace ambervane
