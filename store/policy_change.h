#ifndef AMBERVANE_STORE_POLICY_CHANGE_H_
#define AMBERVANE_STORE_POLICY_CHANGE_H_

#include <map>
#include <string>

#include "store/mail_archive.h"

namespace ambervane {

/// Puts `policy` in place of the archive's, in the manifest first and then in the journal, with
/// `details`. Throws ArchiveError (ReadOnly), FileError, SQLiteError.
void replacePolicyOnRecord(MailArchive& archive, const RetentionPolicy& policy,
                           const std::map<std::string, std::string>& details);

/// At an opening for writing: journals a policy that a crash left in the manifest alone, and
/// returns true when there was one. Throws SQLiteError, FileError.
bool completePolicyChange(MailArchive& archive);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_POLICY_CHANGE_H_
