#ifndef AMBERVANE_STORE_RESTORE_HOLDS_H_
#define AMBERVANE_STORE_RESTORE_HOLDS_H_

#include <cstdint>

#include "store/mail_archive.h"

namespace ambervane {

/// Brings the legal holds back from the journal into a catalog that has the messages again and no
/// holds yet, each as it stands, and puts those active over what belongs to them. An active one
/// whose criteria the journal does not have covers nothing, and the journal is told so. Returns how
/// many holds there are. Throws SQLiteError, JournalError, FileError.
std::int64_t restoreHolds(MailArchive& archive);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_RESTORE_HOLDS_H_
