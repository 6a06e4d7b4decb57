#ifndef AMBERVANE_STORE_UNKEPT_CHANGES_H_
#define AMBERVANE_STORE_UNKEPT_CHANGES_H_

#include <cstdint>
#include <functional>
#include <optional>

#include "evidence/audit_journal.h"

namespace ambervane {

class MailArchive;

// A change is journalled before the transaction that keeps it is committed. The journal cannot take
// back what it says of one that was not kept; a later entry says so instead.

/// The numbers of entries, both ends included.
struct EntryRange {
  std::int64_t first = 0;
  std::int64_t last = 0;
};

/// Which earlier entries `entry` says do not hold; absent when it says no such thing.
std::optional<EntryRange> unkeptEntries(const AuditEntry& entry);

/// Calls `body` for each entry of the journal, in its order, but for those that a later one says do
/// not hold.
void forEachKeptEntry(const AuditJournal& journal,
                      const std::function<void(const AuditEntry&)>& body);

/// At an opening for writing, before anything else is journalled: a crash between the entries of a
/// change of holds, tags, retention, notes or smart folders and its commit leaves entries for what
/// was not done. Says so in the journal, and returns true, when the last writer ended that way.
/// Reads no more than these and what readers have journalled since. Throws SQLiteError, FileError.
bool nameUnkeptChange(MailArchive& archive);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_UNKEPT_CHANGES_H_
