#include "imapkit/imap_error.h"

namespace ambervane {

LocalizedMessage IMAPError::message() const {
  struct Words {
    LocalizedMessage operator()(const ConnectionFailed& r) const {
      return {"Connection failed: %@", {r.text}};
    }
    LocalizedMessage operator()(const Diagnosed& r) const {
      return {"%@", {r.diagnostic.combined()}};
    }
    LocalizedMessage operator()(const TimedOut& r) const { return {"%@", {r.text}}; }
    LocalizedMessage operator()(const ProtocolViolation& r) const {
      return {"The server sent something unexpected: %@", {r.text}};
    }
    LocalizedMessage operator()(const CommandFailed& r) const {
      return {"%1$@ failed: %2$@", {r.command, r.response}};
    }
    LocalizedMessage operator()(const AuthenticationFailed& r) const { return {"%@", {r.text}}; }
    LocalizedMessage operator()(const TLSRequired& r) const { return {"%@", {r.text}}; }
    LocalizedMessage operator()(const Unsupported& r) const {
      return {"Unsupported: %@", {r.text}};
    }
    LocalizedMessage operator()(const NotConnected&) const {
      return {"Not connected to the server", {}};
    }
    LocalizedMessage operator()(const Cancelled&) const { return {"Cancelled", {}}; }
  };
  return std::visit(Words{}, reason_);
}

}  // namespace ambervane
