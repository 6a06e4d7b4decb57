#include "compliance/disposal_approval.h"

#include "base/text.h"

namespace ambervane {
namespace {

struct Words {
  LocalizedMessage operator()(const DisposalRefusal::NotPermitted&) const {
    return {
        "This archive is set to report retention only, so nothing can be deleted. Change the "
        "disposal setting in the retention policy first — and note that even then, disposal only "
        "ever happens when a person approves a reviewed list.",
        {}};
  }
  LocalizedMessage operator()(const DisposalRefusal::ConfirmationMismatch&) const {
    return {"Type %@ exactly to confirm.", {kDisposalPhrase}};
  }
  LocalizedMessage operator()(const DisposalRefusal::NothingApproved&) const {
    return {"No messages were approved for disposal.", {}};
  }
  LocalizedMessage operator()(const DisposalRefusal::NoApprover&) const {
    return {"Record who is approving this disposal.", {}};
  }
  LocalizedMessage operator()(const DisposalRefusal::NoReason&) const {
    return {"Record why these messages are being disposed of.", {}};
  }
  LocalizedMessage operator()(const DisposalRefusal::ShreddingUnavailable&) const {
    return {
        "This archive stores messages unencrypted, so there is no key to destroy. Disposal would "
        "mean rewriting WORM media, which the archive will not do.",
        {}};
  }
};

std::string trimmed(const std::string& text) { return std::string(trim(text)); }

}  // namespace

LocalizedMessage DisposalRefusal::message() const { return std::visit(Words{}, reason_); }

DisposalApproval completeApproval(DisposalApproval approval) {
  approval.confirmation = trimmed(approval.confirmation);
  approval.approvedBy = trimmed(approval.approvedBy);
  approval.reason = trimmed(approval.reason);
  if (approval.confirmation != kDisposalPhrase) {
    throw DisposalRefusal(DisposalRefusal::ConfirmationMismatch{});
  }
  if (approval.approvedBy.empty()) throw DisposalRefusal(DisposalRefusal::NoApprover{});
  if (approval.reason.empty()) throw DisposalRefusal(DisposalRefusal::NoReason{});
  if (approval.messageIDs.empty()) throw DisposalRefusal(DisposalRefusal::NothingApproved{});
  return approval;
}

}  // namespace ambervane
