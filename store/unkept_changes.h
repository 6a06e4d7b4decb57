#ifndef AMBERVANE_STORE_UNKEPT_CHANGES_H_
#define AMBERVANE_STORE_UNKEPT_CHANGES_H_

namespace ambervane {

class MailArchive;

/// At an opening for writing: a change of holds, retention, notes or smart folders is journalled
/// before the transaction that keeps it is committed (`RecordedChange`), so a crash between the two
/// leaves an entry for what was not done. Says so in the journal, and returns true, when the last
/// writer ended that way. Reads no more than what readers have journalled since. Throws
/// SQLiteError, FileError.
bool nameUnkeptChange(MailArchive& archive);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_UNKEPT_CHANGES_H_
