#ifndef AMBERVANE_STORE_LOST_MESSAGES_H_
#define AMBERVANE_STORE_LOST_MESSAGES_H_

#include <cstdint>
#include <optional>

namespace ambervane {

class MailArchive;

// A message is journalled before the transaction that keeps it is committed, so a crash between the
// two leaves an entry for a message that is not there. The catalog therefore notes with each batch
// and each change up to where the journal's entries hold (`journal_committed` in the table `meta`).

/// Notes that all entries of the journal so far hold; for each transaction that the journal tells
/// of.
void noteJournalCommitted(MailArchive& archive);
/// The number of the last entry that holds for certain; absent in a catalog from before the note
/// was kept.
std::optional<std::int64_t> journalCommitted(MailArchive& archive);

/// At an opening for writing: removes rows that were never placed, and names these messages and
/// those journalled as ingested behind what holds and without a row, in one journal entry. Returns
/// how many it named. Reads no more of the journal than stands behind what holds. Throws
/// SQLiteError, FileError.
std::int64_t nameLostMessages(MailArchive& archive);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_LOST_MESSAGES_H_
