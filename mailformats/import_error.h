#ifndef AMBERVANE_MAILFORMATS_IMPORT_ERROR_H_
#define AMBERVANE_MAILFORMATS_IMPORT_ERROR_H_

#include <string>
#include <utility>
#include <variant>

#include "base/localized_message.h"

namespace ambervane {

/// Why a whole mail source cannot be imported. A single damaged item in it is reported through
/// `MessageImporter::Unreadable` instead.
class ImportError final : public TranslatableError {
 public:
  struct Unreadable {
    std::string item;  ///< "<path>: <reason>", or the path alone
  };
  struct Unsupported {
    std::string path;
  };
  /// A kind that detection knows and no reader of this version takes.
  struct NotYetImportable {
    std::string path;
    std::string label;  ///< of the MailSourceKind
  };
  struct Cancelled {};
  using Reason = std::variant<Unreadable, Unsupported, NotYetImportable, Cancelled>;

  explicit ImportError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_IMPORT_ERROR_H_
