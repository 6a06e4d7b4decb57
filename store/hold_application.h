#ifndef AMBERVANE_STORE_HOLD_APPLICATION_H_
#define AMBERVANE_STORE_HOLD_APPLICATION_H_

#include <cstdint>
#include <map>
#include <string>

#include "evidence/hold.h"
#include "store/mail_archive.h"
#include "store/prepared_message.h"

namespace ambervane {

// Which messages legal holds cover. All throw SQLiteError, and JsonError when an active hold cannot
// be read: a message must not come in quietly unprotected.

/// Puts a message that is being stored in `folder` under every active hold it belongs to.
void applyMatchingHolds(MailArchive& archive, std::int64_t messageID,
                        const PreparedMessage& message, const std::string& folder);
/// The same for a message the archive has, which may have come into a further folder.
void applyMatchingHolds(MailArchive& archive, const MessageRow& row);

/// What a hold was found to cover.
struct HoldCoverage {
  std::int64_t messages = 0;    ///< under the hold now
  std::int64_t unreadable = 0;  ///< among them, because damage left open whether they belong to it
};
/// Puts every message in the archive that belongs to a hold, and is not erased, under it. Reads the
/// messages themselves where the catalog cannot tell.
HoldCoverage reapplyHold(MailArchive& archive, const LegalHold& hold);

/// What the journal says of a hold that is put into the catalog. A catalog can be lost: what the
/// hold covers must be found in the journal as well.
std::map<std::string, std::string> holdDetails(const LegalHold& hold);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_HOLD_APPLICATION_H_
