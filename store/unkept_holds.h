#ifndef AMBERVANE_STORE_UNKEPT_HOLDS_H_
#define AMBERVANE_STORE_UNKEPT_HOLDS_H_

namespace ambervane {

class MailArchive;

/// At an opening for writing: a hold is journalled before the transaction that keeps it is
/// committed, so a crash between the two leaves an entry for a hold that is not placed, or still
/// is. Says so in the journal, and returns true, when the last writer ended that way. Reads no
/// more than what readers have journalled since. Throws SQLiteError, JsonError, FileError.
bool nameUnkeptHold(MailArchive& archive);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_UNKEPT_HOLDS_H_
