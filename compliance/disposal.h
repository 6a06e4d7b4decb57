#ifndef AMBERVANE_COMPLIANCE_DISPOSAL_H_
#define AMBERVANE_COMPLIANCE_DISPOSAL_H_

#include "base/date.h"
#include "compliance/disposal_approval.h"
#include "store/mail_archive.h"

namespace ambervane {

/// Erases the messages of an approved list that are past their period at `asOf`, both by the date
/// they carry and by the policy as it stands now, and are under no active hold. The approval is in
/// the journal before the first key is destroyed, the outcome after the last, then the journal is
/// sealed: a crash leaves an approval without an outcome. Throws, before anything is written,
/// ArchiveError (ReadOnly) and DisposalRefusal; later what `shredContent` throws, and what is
/// erased by then stays erased.
DisposalResult disposeApproved(MailArchive& archive, const DisposalApproval& approval, Date asOf);

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_DISPOSAL_H_
