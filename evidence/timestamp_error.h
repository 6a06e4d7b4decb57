#ifndef AMBERVANE_EVIDENCE_TIMESTAMP_ERROR_H_
#define AMBERVANE_EVIDENCE_TIMESTAMP_ERROR_H_

#include <cstdint>
#include <string>
#include <utility>
#include <variant>

#include "base/localized_message.h"

namespace ambervane {

/// Why one authority gave no token.
class TimestampError final : public TranslatableError {
 public:
  struct Rejected {
    std::int64_t status;  ///< PKIStatus of RFC 3161 section 2.4.2
    std::string text;     ///< the authority's words, fit for a terminal; may be empty
  };
  struct Malformed {
    enum class Detail { notSequence, status, noToken, noInfo, fieldsMissing, noTime };
    Detail detail;
  };
  struct Transport {
    std::string detail;
  };
  struct NotConfigured {};
  struct ImprintMismatch {};
  struct NonceMismatch {};
  using Reason =
      std::variant<Rejected, Malformed, Transport, NotConfigured, ImprintMismatch, NonceMismatch>;
  explicit TimestampError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_TIMESTAMP_ERROR_H_
