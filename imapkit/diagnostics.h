#ifndef AMBERVANE_IMAPKIT_DIAGNOSTICS_H_
#define AMBERVANE_IMAPKIT_DIAGNOSTICS_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/localized_message.h"

namespace ambervane {

struct IMAPServer;

/// What went wrong with a server and what to do about it, for a person.
struct IMAPDiagnostic {
  LocalizedMessage summaryMessage;
  std::optional<LocalizedMessage> detailMessage;
  std::vector<LocalizedMessage> hintMessages;
  std::string underlying;  ///< what the server or the system said, unchanged
  std::optional<std::string> helpURL;
  std::optional<std::string> settingsURL;  ///< where the provider's password or switch is
  std::optional<std::string> helpArticle;  ///< key of a longer text: "outlook-no-mailbox"

  /// Summary, detail and hints on one line.
  std::string combined() const;
  friend bool operator==(const IMAPDiagnostic&, const IMAPDiagnostic&) = default;
};

/// Who keeps an account, where that decides what a refusal means.
enum class IMAPAccountKind { unknown, personalMicrosoft, organisation };

/// How a connection failed, as the layer below counts it.
struct NetworkError {
  enum class Kind {
    system,       ///< `code` is an errno value
    lookup,       ///< an EAI_ value of getaddrinfo
    certificate,  ///< an X509_V_ERR_ value of the certificate's verification
    handshake,    ///< an SSL_R_ reason; what came back was no TLS, or the two sides do not agree
    tls,          ///< any other error of the TLS library
  };
  Kind kind = Kind::system;
  long code = 0;
  std::string text;  ///< that layer's own words

  static NetworkError system(int error);
  /// `error` is the errno value that belongs to EAI_SYSTEM.
  static NetworkError lookup(int code, int error);
  static NetworkError certificate(long verifyResult);
  /// `code` is as ERR_get_error gives it; 0 where the library has no error on record.
  static NetworkError handshake(unsigned long code);
  static NetworkError tls(unsigned long code);
};

/// Turns failures into statements of what happened and what to do. Nothing here fails: what cannot
/// be classified keeps the raw text.
namespace IMAPDiagnostics {

/// A connection that could not be made, or broke.
IMAPDiagnostic describe(const NetworkError& error, const IMAPServer& server);

/// A TLS session that did not come about; `status` is of the kinds certificate, handshake and tls.
IMAPDiagnostic tlsDiagnostic(const NetworkError& status, const IMAPServer& server);

/// A connection that was not ready within the server's timeout.
IMAPDiagnostic connectTimedOut(const IMAPServer& server);

/// A sign-in that the server refused with `serverText`. `challenge` is what it said before that,
/// the decoded challenge of a SASL exchange.
IMAPDiagnostic describeAuthentication(std::string_view serverText, const IMAPServer& server,
                                      const std::string& username,
                                      const std::optional<std::string>& challenge,
                                      IMAPAccountKind accountKind);

/// The JSON text behind "+ " of a continuation line in base64 (RFC 7628 section 3.2.2); absent for
/// anything that does not decode to an opening brace.
std::optional<std::string> decodeSASLChallenge(std::string_view line);

/// Where a mail server may be when `host` is not one.
LocalizedMessage suggestion(const std::string& host);

/// What the port and TLS's being on or off say about each other; empty where they agree.
std::vector<LocalizedMessage> portHints(const IMAPServer& server);

}  // namespace IMAPDiagnostics
}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_DIAGNOSTICS_H_
