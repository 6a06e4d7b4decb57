#ifndef AMBERVANE_STORE_KEY_ERROR_H_
#define AMBERVANE_STORE_KEY_ERROR_H_

#include <string>
#include <utility>
#include <variant>

#include "base/localized_message.h"

namespace ambervane {

/// Why something encrypted cannot be read, or cannot be encrypted.
class KeyError final : public TranslatableError {
 public:
  /// Keys are stored, and the master key they are wrapped under is not there.
  struct MasterKeyMissing {
    std::string path;  ///< where it should be
  };
  struct WrapFailed {};
  /// The key was destroyed on purpose.
  struct Shredded {};
  /// Something stored does not open under the keys at hand.
  struct MasterKeyMismatch {};
  using Reason = std::variant<MasterKeyMissing, WrapFailed, Shredded, MasterKeyMismatch>;

  explicit KeyError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  template <typename T>
  bool is() const noexcept {
    return std::holds_alternative<T>(reason_);
  }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_KEY_ERROR_H_
