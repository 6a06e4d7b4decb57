#ifndef AMBERVANE_IMAPKIT_IMAP_ERROR_H_
#define AMBERVANE_IMAPKIT_IMAP_ERROR_H_

#include <string>
#include <utility>
#include <variant>

#include "base/localized_message.h"
#include "imapkit/diagnostics.h"

namespace ambervane {

/// What can go wrong between this client and a server. After `CommandFailed`, `Unsupported` and a
/// `Diagnosed` sign-in the session goes on; after anything else the connection is of no use.
class IMAPError final : public TranslatableError {
 public:
  struct ConnectionFailed {
    std::string text;
  };
  /// A connection or a sign-in that failed, with its explanation.
  struct Diagnosed {
    IMAPDiagnostic diagnostic;
  };
  struct TimedOut {
    std::string text;
  };
  struct ProtocolViolation {
    std::string text;
  };
  /// The server answered NO or BAD.
  struct CommandFailed {
    std::string command;   ///< its first word
    std::string response;  ///< the server's line, unchanged
  };
  struct AuthenticationFailed {
    std::string text;
  };
  struct TLSRequired {
    std::string text;
  };
  struct Unsupported {
    std::string text;
  };
  struct NotConnected {};
  /// The cancellation check said yes while something was waited for.
  struct Cancelled {};
  using Reason =
      std::variant<ConnectionFailed, Diagnosed, TimedOut, ProtocolViolation, CommandFailed,
                   AuthenticationFailed, TLSRequired, Unsupported, NotConnected, Cancelled>;

  explicit IMAPError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  /// Whether the reason is a `R`: `error.is<IMAPError::Cancelled>()`.
  template <typename R>
  bool is() const noexcept {
    return std::holds_alternative<R>(reason_);
  }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_IMAP_ERROR_H_
