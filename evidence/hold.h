#ifndef AMBERVANE_EVIDENCE_HOLD_H_
#define AMBERVANE_EVIDENCE_HOLD_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/date.h"

namespace ambervane {

/// Which messages belong to a matter. Lists are alternatives; what is given must all hold.
struct HoldCriteria {
  std::vector<std::string> participants;  ///< anywhere among the message's people
  std::vector<std::string> folders;       ///< anywhere in the folder's path
  std::optional<Date> dateFrom, dateTo;   ///< of the message, both inclusive
  std::vector<std::string> searchTerms;   ///< anywhere in the subject or the text
  std::vector<std::string> pinnedMessageHashes;  ///< digests of messages named one by one
  friend bool operator==(const HoldCriteria&, const HoldCriteria&) = default;

  /// Whether nothing but pinned messages can match.
  bool isEmpty() const noexcept;
  /// The criteria in words; empty when they say nothing.
  std::string summary() const;
};

/// What holds look at in a message in one mailbox, made ready to be compared with many of them.
class HoldSubject {
 public:
  /// `participants` is the names and addresses in one text, `folder` the path of the folder where
  /// that is known, `text` subject and body, `hash` the SHA-256 in lower-case hexadecimal.
  HoldSubject(std::string_view participants, std::optional<std::string> folder,
              std::optional<Date> date, std::string_view text, std::string hash);

  /// Whether the message belongs to the matter. Letters are compared without regard to case. Empty
  /// criteria match nothing but pinned messages, and an entry left blank matches nothing: neither
  /// may sweep everything in.
  bool matches(const HoldCriteria& criteria) const;

 private:
  std::string participants_;
  std::optional<std::string> folder_;
  std::optional<Date> date_;
  std::string text_;
  std::string hash_;
};

/// A freeze on what belongs to a matter: neither a period's end nor a request erases it.
struct LegalHold {
  std::string id;
  std::string name, reason;
  std::string custodian;  ///< who is responsible for it
  Date createdAt;
  std::optional<Date> releasedAt;  ///< absent while it is active
  HoldCriteria criteria;
  friend bool operator==(const LegalHold&, const LegalHold&) = default;

  bool isActive() const noexcept { return !releasedAt; }
};

/// A hold as the catalog keeps it. Keys are the field names; dates are seconds since 1970.
std::string legalHoldJson(const LegalHold& hold);
/// Reads what `legalHoldJson` makes; dates may be ISO 8601 texts as well. Throws JsonError: a hold
/// half understood must not decide what is protected.
LegalHold legalHoldFromJson(std::string_view text);

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_HOLD_H_
