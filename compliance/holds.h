#ifndef AMBERVANE_COMPLIANCE_HOLDS_H_
#define AMBERVANE_COMPLIANCE_HOLDS_H_

#include <string>
#include <utility>
#include <variant>

#include "base/localized_message.h"
#include "evidence/hold.h"
#include "store/hold_application.h"
#include "store/mail_archive.h"

namespace ambervane {

// Placing and releasing legal holds; store/catalog_holds.h says what they cover. All throw
// ArchiveError (ReadOnly), SQLiteError, JsonError, FileError; nothing has changed then.

class HoldError final : public TranslatableError {
 public:
  struct Unknown {
    std::string id;
  };
  struct AlreadyReleased {
    std::string id;
  };
  using Reason = std::variant<Unknown, AlreadyReleased>;
  explicit HoldError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// Saves a hold, puts every message that belongs to it under it, and journals that.
HoldCoverage placeHold(MailArchive& archive, const LegalHold& hold);
/// Ends a hold for good: its messages go free unless another one covers them; the hold itself stays
/// on record. Throws HoldError.
void releaseHold(MailArchive& archive, const std::string& id, const std::string& reason);

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_HOLDS_H_
