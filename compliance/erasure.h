#ifndef AMBERVANE_COMPLIANCE_ERASURE_H_
#define AMBERVANE_COMPLIANCE_ERASURE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "compliance/disposal_approval.h"
#include "query/search_query.h"
#include "store/content_erasure.h"
#include "store/mail_archive.h"

namespace ambervane {

/// Erases one message, journals that and seals. It may be within its retention period, and it may
/// have been erased before. Throws, before anything is written, ArchiveError (ReadOnly, also where
/// the policy keeps no content keys; OnLegalHold; MessageMissing) and DisposalRefusal
/// (ShreddingUnavailable) for a message stored unencrypted before the policy asked for keys.
ErasedContent eraseMessage(MailArchive& archive, std::int64_t id, const std::string& reason,
                           const std::string& requester);

inline constexpr std::size_t kReviewedRows = 2000;

/// What a request would erase. Lists end at `kReviewedRows`; counts and `erasableIDs` do not.
struct ErasureReview {
  std::vector<MessageRow> erasable;
  std::vector<MessageRow> heldBack;  ///< under an active legal hold
  std::vector<MessageRow> alreadyErased;
  std::int64_t erasableCount = 0;
  std::int64_t heldBackCount = 0;
  std::int64_t alreadyErasedCount = 0;
  std::vector<std::int64_t> erasableIDs;
  std::int64_t withinRetentionCount = 0;  ///< of the erasable, those kept beyond `asOf`
};

/// Sorts all that `query` selects, erased messages included, and journals that; its page is not
/// looked at. Erases nothing. Throws SQLiteError; FileError where the journal cannot be written.
ErasureReview reviewErasure(MailArchive& archive, SearchQuery query, Date asOf);

/// Erases the messages of an approved list, but those that are erased or came under a hold
/// meanwhile. The approval is in the journal before the first key is destroyed, the outcome after
/// the last, then the journal is sealed. Throws, before anything is written, ArchiveError
/// (ReadOnly) and DisposalRefusal; later what `shredContent` throws, and what is erased by then
/// stays erased.
DisposalResult eraseApproved(MailArchive& archive, const DisposalApproval& approval);

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_ERASURE_H_
