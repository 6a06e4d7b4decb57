#ifndef AMBERVANE_COMPLIANCE_HOLDINGS_H_
#define AMBERVANE_COMPLIANCE_HOLDINGS_H_

#include <string>
#include <vector>

#include "base/localized_message.h"
#include "compliance/journal_record.h"
#include "store/mail_archive.h"

namespace ambervane {

/// What comparing the catalog with the journal gave.
struct HoldingsResult {
  std::vector<LocalizedMessage> faults;  ///< empty when they agree
  LocalizedMessage agreement;            ///< what to say then
};

/// Compares what the catalog holds with what the journal says was taken in, sealed and held, so
/// that nothing can be taken out of the catalog or altered in it unseen: every message recorded as
/// taken in is there, held or erased, unless a later entry says that a crash took it; every row has
/// its entry and agrees with it; dates, classes and references to attachments follow from one
/// another. `misdated` are digests whose date a re-reading has found wrong. Throws SQLiteError.
HoldingsResult compareHoldings(MailArchive& archive, const JournalRecord& journal,
                               const std::vector<std::string>& misdated = {});

/// Every text `compareHoldings` may say.
std::vector<std::string> holdingsWords();

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_HOLDINGS_H_
