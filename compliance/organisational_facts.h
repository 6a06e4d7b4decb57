#ifndef AMBERVANE_COMPLIANCE_ORGANISATIONAL_FACTS_H_
#define AMBERVANE_COMPLIANCE_ORGANISATIONAL_FACTS_H_

#include <optional>
#include <string>

#include "store/mail_archive.h"

namespace ambervane {

/// What a person states about how the archive is kept. Those present replace what was recorded.
struct OrganisationalFacts {
  std::optional<std::string> secondCopy;          ///< where it lies
  std::optional<std::string> procedure;           ///< where its documentation is
  std::optional<std::string> timestampAuthority;  ///< URLs divided by commas, or "none"
};

/// Records what `by` states; the journal says that it is a statement. Nothing happens when nothing
/// is stated. Throws ArchiveError (ReadOnly), SQLiteError, FileError; nothing has changed then.
void recordOrganisationalFacts(MailArchive& archive, const OrganisationalFacts& stated,
                               const std::string& by);

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_ORGANISATIONAL_FACTS_H_
