#ifndef AMBERVANE_STORE_RESTORE_ANNOTATIONS_H_
#define AMBERVANE_STORE_RESTORE_ANNOTATIONS_H_

#include <cstdint>

#include "evidence/audit_journal.h"
#include "store/catalog.h"

namespace ambervane {

// What the keepers of an archive have added to a catalog that was lost, brought back from the
// journal: its entries are replayed in order into a catalog that has the messages again and none of
// these yet. What belongs to a message that is not there is passed over, and so are definitions
// that cannot be read. Each returns how many it has brought back: definitions, notes, tagged
// messages. Each walks the journal once and is one transaction. Failures are SQLiteError.

std::int64_t restoreSmartFolders(const AuditJournal& journal, Catalog& into);
std::int64_t restoreTagRules(const AuditJournal& journal, Catalog& into);
std::int64_t restoreNotes(const AuditJournal& journal, Catalog& into);
std::int64_t restoreTags(const AuditJournal& journal, Catalog& into);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_RESTORE_ANNOTATIONS_H_
