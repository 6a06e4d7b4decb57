#ifndef AMBERVANE_STORE_MERGE_ACCOUNTS_H_
#define AMBERVANE_STORE_MERGE_ACCOUNTS_H_

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "store/commit.h"
#include "store/mail_archive.h"

namespace ambervane {

/// Stands for the folder of a message that never lay in one.
inline constexpr std::int64_t kNoFolder = 0;

/// The accounts that a merge makes in its target, one for each of the source's, and one for
/// messages without a mailbox where there are such. An account keeps its name when that is free;
/// one that an earlier merge of the same source made, as the journal tells, is used again.
class MergeAccounts {
 public:
  /// Only looks. Throws SQLiteError.
  MergeAccounts(MailArchive& target, MailArchive& source);
  /// The names, those of the source with those here, in JSON for the journal: what makes a second
  /// merge find them.
  std::string record() const;
  std::int64_t count() const noexcept { return static_cast<std::int64_t>(names_.size()); }
  /// Makes what is missing; returns the target's mailboxes by the source's folder numbers, with
  /// one for `kNoFolder`.
  std::map<std::int64_t, MailboxRef> make();

 private:
  std::string uniqueAccountName(const std::string& sourceName) const;
  /// Names here by names of the source, as earlier merges chose them.
  std::map<std::string, std::string> earlierNames() const;

  MailArchive& target_;
  MailArchive& source_;
  std::vector<AccountRow> accounts_;  ///< of the source
  std::set<std::string> taken_;
  std::map<std::string, std::string> names_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_MERGE_ACCOUNTS_H_
