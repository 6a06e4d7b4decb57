#ifndef AMBERVANE_EVIDENCE_HOLD_H_
#define AMBERVANE_EVIDENCE_HOLD_H_

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/date.h"

namespace ambervane {

/// Which messages belong to a matter. Lists are alternatives; what is given must all hold.
struct HoldCriteria {
  std::vector<std::string> participants = {};         ///< anywhere among the message's people
  std::vector<std::string> folders = {};              ///< anywhere in the folder's path
  std::optional<Date> dateFrom = {}, dateTo = {};     ///< of the message, both inclusive
  std::vector<std::string> searchTerms = {};          ///< anywhere in the subject or the text
  std::vector<std::string> pinnedMessageHashes = {};  ///< digests of messages named one by one
  friend bool operator==(const HoldCriteria&, const HoldCriteria&) = default;

  /// Whether nothing but pinned messages can match.
  bool isEmpty() const noexcept;
  /// The criteria in words; empty when they say nothing.
  std::string summary() const;
};

/// A text that is asked for when it is first needed, folded for comparing.
class LateText {
 public:
  /// `read` gives the text; absent: it cannot be read.
  using Reader = std::function<std::optional<std::string>()>;
  /// Whether any of `entries` stands in the text. One that cannot be read holds any entry that says
  /// something.
  bool containsAny(const Reader& read, const std::vector<std::string>& entries);

 private:
  bool isAsked_ = false;
  std::optional<std::string> folded_;
};

/// What holds look at in a message, asked for at most once and only when a criterion needs it.
class HoldSubject {
 public:
  struct Source {
    std::string hash;                  ///< SHA-256 in lower-case hexadecimal
    std::vector<std::string> folders;  ///< paths of those it lies in
    std::optional<Date> date;
    // Absent: it cannot be read, and then counts as holding whatever is looked for, since a message
    // must not lose its protection by damage.
    LateText::Reader participants;  ///< names and addresses, in one text
    LateText::Reader text;          ///< subject and body
  };
  explicit HoldSubject(Source source) : source_(std::move(source)) {}

  /// Whether the message belongs to the matter. Letters are compared without regard to case. Empty
  /// criteria match nothing but pinned messages, and an entry left blank matches nothing: neither
  /// may sweep everything in.
  bool matches(const HoldCriteria& criteria);

 private:
  Source source_;
  LateText participants_, text_;
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

/// Criteria as the journal keeps them, so that a lost hold can be placed again.
std::string holdCriteriaJson(const HoldCriteria& criteria);
/// Throws JsonError.
HoldCriteria holdCriteriaFromJson(std::string_view text);

/// A hold as the catalog keeps it. Keys are the field names; dates are seconds since 1970.
std::string legalHoldJson(const LegalHold& hold);
/// Reads what `legalHoldJson` makes; dates may be ISO 8601 texts as well. Throws JsonError: a hold
/// half understood must not decide what is protected.
LegalHold legalHoldFromJson(std::string_view text);

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_HOLD_H_
