#ifndef AMBERVANE_COMPLIANCE_DISPOSAL_APPROVAL_H_
#define AMBERVANE_COMPLIANCE_DISPOSAL_APPROVAL_H_

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "base/localized_message.h"

namespace ambervane {

/// What a person must type to approve.
inline constexpr const char* kDisposalPhrase = "DISPOSE";

/// A person's approval to erase the messages of a list they have reviewed.
struct DisposalApproval {
  std::vector<std::int64_t> messageIDs;
  std::string approvedBy;
  std::string reason;
  std::string confirmation;  ///< as typed
};

/// What became of the messages of an approved list.
struct DisposalResult {
  std::int64_t erased = 0;
  std::int64_t skippedOnHold = 0;
  std::int64_t skippedNoLongerExpired = 0;
  std::int64_t skippedAlreadyErased = 0;
  /// See `ErasedContent`.
  bool isForgotten = true;
  friend bool operator==(const DisposalResult&, const DisposalResult&) = default;
};

/// Why an approved list is not carried out.
class DisposalRefusal final : public TranslatableError {
 public:
  struct NotPermitted {};
  struct ConfirmationMismatch {};
  struct NothingApproved {};
  struct NoApprover {};
  struct NoReason {};
  struct ShreddingUnavailable {};
  using Reason = std::variant<NotPermitted, ConfirmationMismatch, NothingApproved, NoApprover,
                              NoReason, ShreddingUnavailable>;

  explicit DisposalRefusal(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  template <typename T>
  bool is() const noexcept {
    return std::holds_alternative<T>(reason_);
  }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// The approval with its texts trimmed. Throws DisposalRefusal, in this order, for a confirmation
/// that is not the phrase, an approver or a reason that is empty, and an empty list.
DisposalApproval completeApproval(DisposalApproval approval);

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_DISPOSAL_APPROVAL_H_
