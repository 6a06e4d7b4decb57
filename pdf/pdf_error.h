#ifndef AMBERVANE_PDF_PDF_ERROR_H_
#define AMBERVANE_PDF_PDF_ERROR_H_

#include <string>
#include <utility>
#include <variant>

#include "base/localized_message.h"

namespace ambervane {

/// Why no page could be set.
class PdfError final : public TranslatableError {
 public:
  struct NoFont {};
  struct Library {
    std::string reason;  ///< what the drawing library says
  };
  using Reason = std::variant<NoFont, Library>;
  explicit PdfError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

}  // namespace ambervane

#endif  // AMBERVANE_PDF_PDF_ERROR_H_
