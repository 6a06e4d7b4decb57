#include "imapkit/diagnostics.h"

#include <netdb.h>
#include <openssl/err.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "base/text.h"
#include "imapkit/imap_server.h"

namespace ambervane {
namespace {

std::string portText(const IMAPServer& server) { return std::to_string(server.port); }

/// The words of the TLS library for one of its errors.
std::string tlsText(unsigned long code) {
  const char* reason = code == 0 ? nullptr : ERR_reason_error_string(code);
  return reason == nullptr ? "the connection ended during the TLS handshake" : reason;
}

/// Whether a verification ended because the certificate is not good, and not because there was no
/// memory for it or the call was wrong.
bool isAboutCertificate(long verifyResult) {
  switch (verifyResult) {
    case X509_V_ERR_UNSPECIFIED:
    case X509_V_ERR_OUT_OF_MEM:
    case X509_V_ERR_INVALID_CALL:
    case X509_V_ERR_STORE_LOOKUP:
      return false;
    default:
      return true;
  }
}

IMAPDiagnostic systemDiagnostic(const NetworkError& error, const IMAPServer& server) {
  IMAPDiagnostic result;
  result.underlying = error.text;
  switch (error.code) {
    case ECONNREFUSED:
      result.summaryMessage = {"Nothing is listening on port %1$@ at %2$@.",
                               {portText(server), server.host}};
      result.detailMessage = {"The host answered, but it refused the connection on that port.", {}};
      result.hintMessages = {
          {"Check the port number — IMAP is 993 with TLS, or 143 without.", {}},
          IMAPDiagnostics::suggestion(server.host),
      };
      return result;
    case ETIMEDOUT:
      result.summaryMessage = {"No answer from %@.", {server.host}};
      result.detailMessage = {
          "The connection was opened but nothing came back before the timeout — typically a "
          "firewall dropping the packets rather than refusing them.",
          {}};
      result.hintMessages = {
          {"Check whether a firewall or VPN is filtering this port.", {}},
          {"Try the same host and port from another network.", {}},
      };
      return result;
    case ECONNRESET:
    case EPIPE:  // the same, met while sending
      result.summaryMessage = {"%@ closed the connection immediately.", {server.host}};
      result.detailMessage = {
          "Something answered but dropped the connection before the IMAP greeting.", {}};
      result.hintMessages = {
          {server.useTLS ? "The port may be plaintext IMAP rather than TLS — try port 143 with TLS "
                           "off."
                         : "The port may expect TLS — try port 993 with TLS on.",
           {}},
      };
      return result;
    case ENETDOWN:
    case ENETUNREACH:
    case EHOSTUNREACH:
      result.summaryMessage = {"%@ cannot be reached from this network.", {server.host}};
      result.detailMessage = {"There is no route to that host.", {}};
      result.hintMessages = {
          {"Check the network connection or the VPN.", {}},
          {"If the server is on a company network, it may only be reachable from inside it.", {}},
      };
      return result;
    default:
      result.summaryMessage = {"Could not connect to %@.", {server.host}};
      result.detailMessage = {"%@", {error.text}};
      result.hintMessages = IMAPDiagnostics::portHints(server);
      return result;
  }
}

bool saysNoSuchName(long lookupCode) {
#ifdef EAI_NODATA
  if (lookupCode == EAI_NODATA) return true;
#endif
  return lookupCode == EAI_NONAME;
}

IMAPDiagnostic lookupDiagnostic(const NetworkError& error, const IMAPServer& server) {
  IMAPDiagnostic result;
  if (saysNoSuchName(error.code)) {
    result.summaryMessage = {"No such host: %@.", {server.host}};
    result.detailMessage = {"DNS has no address for that name.", {}};
  } else {
    result.summaryMessage = {"Could not look up %@.", {server.host}};
    result.detailMessage = {"The DNS lookup failed (code %@).", {std::to_string(error.code)}};
  }
  result.hintMessages = {
      {"Check the spelling of the server name.", {}},
      {"If this machine is offline or behind a captive portal, DNS will fail for everything.", {}},
  };
  result.underlying = error.text;
  return result;
}

}  // namespace

std::string IMAPDiagnostic::combined() const {
  std::string text = summaryMessage.text();
  if (detailMessage) text += " " + detailMessage->text();
  for (const LocalizedMessage& hint : hintMessages) text += " " + hint.text();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return printable(text);
}

NetworkError NetworkError::system(int error) {
  return {Kind::system, error, std::generic_category().message(error)};
}

NetworkError NetworkError::lookup(int code, int error) {
  if (code == EAI_SYSTEM) return system(error);
  return {Kind::lookup, code, ::gai_strerror(code)};
}

NetworkError NetworkError::certificate(long verifyResult) {
  return {Kind::certificate, verifyResult, X509_verify_cert_error_string(verifyResult)};
}

NetworkError NetworkError::handshake(unsigned long code) {
  return {Kind::handshake, ERR_GET_REASON(code), tlsText(code)};
}

NetworkError NetworkError::tls(unsigned long code) {
  return {Kind::tls, ERR_GET_REASON(code), tlsText(code)};
}

namespace IMAPDiagnostics {

IMAPDiagnostic describe(const NetworkError& error, const IMAPServer& server) {
  switch (error.kind) {
    case NetworkError::Kind::system:
      return systemDiagnostic(error, server);
    case NetworkError::Kind::lookup:
      return lookupDiagnostic(error, server);
    default:
      return tlsDiagnostic(error, server);
  }
}

IMAPDiagnostic tlsDiagnostic(const NetworkError& status, const IMAPServer& server) {
  const std::string code = std::to_string(status.code);
  IMAPDiagnostic result;
  result.underlying = status.text;
  if (status.kind == NetworkError::Kind::certificate &&
      (status.code == X509_V_ERR_HOSTNAME_MISMATCH ||
       status.code == X509_V_ERR_IP_ADDRESS_MISMATCH)) {
    result.summaryMessage = {"The certificate's host name does not match %1$@ (status %2$@).",
                             {server.host, code}};
    result.hintMessages = {{"Use the host name the certificate was issued for.", {}}};
  } else if (status.kind == NetworkError::Kind::certificate && isAboutCertificate(status.code)) {
    result.summaryMessage = {"The server's certificate was not accepted (status %@).", {code}};
    result.detailMessage = {
        "The certificate may be self-signed, expired, or issued for a different host name.", {}};
    result.hintMessages = {
        {"If you know the server and accept the risk, retry with certificate "
         "validation switched off.",
         {}}};
  } else if (status.kind == NetworkError::Kind::handshake) {
    result.summaryMessage = {"TLS handshake failed (status %@).", {code}};
    result.detailMessage = {"The server did not complete a TLS handshake (status %@).", {code}};
    result.hintMessages = {
        {"Port %@ may be plaintext IMAP. Port 143 usually is; 993 is the TLS port.",
         {portText(server)}}};
  } else {
    result.summaryMessage = {"TLS could not be established with %@.", {server.host}};
    result.hintMessages = {
        {"If the server only offers STARTTLS on port 143, use port 993 instead "
         "— this client does not upgrade a live connection.",
         {}}};
  }
  return result;
}

IMAPDiagnostic connectTimedOut(const IMAPServer& server) {
  const auto seconds = static_cast<long long>(server.timeout);
  IMAPDiagnostic result;
  result.summaryMessage = {"No answer from %1$@ within %2$@ seconds.",
                           {server.host, std::to_string(seconds)}};
  result.detailMessage = {"The connection never became ready.", {}};
  result.hintMessages = {
      {"A firewall that drops rather than refuses traffic looks exactly like this.", {}}};
  result.underlying = std::generic_category().message(ETIMEDOUT);
  return result;
}

LocalizedMessage suggestion(const std::string& host) {
  const std::string lower = asciiLowercase(host);
  for (const char* prefix : {"imap.", "mail.", "mx.", "email.", "pop."}) {
    if (lower.starts_with(prefix)) {
      return {"A mail server name is not always the website's — check it with your provider.", {}};
    }
  }
  std::size_t begin = host.rfind('.');
  if (begin != std::string::npos && begin > 0) begin = host.rfind('.', begin - 1);
  const std::string baseDomain = begin == std::string::npos ? host : host.substr(begin + 1);
  return {"Mail servers usually sit on their own name — try imap.%1$@ or mail.%2$@.",
          {baseDomain, baseDomain}};
}

std::vector<LocalizedMessage> portHints(const IMAPServer& server) {
  LocalizedMessage hint;
  if (!server.useTLS && server.port == kTlsPort) {
    hint = {"Port 993 expects TLS, but TLS is switched off here.", {}};
  } else if (server.useTLS && server.port != kTlsPort) {
    hint = {"TLS is on but the port is %@; the standard TLS port for IMAP is 993.",
            {portText(server)}};
  } else {
    return {};
  }
  return {hint, {"Most providers only accept TLS on port 993.", {}}};
}

}  // namespace IMAPDiagnostics
}  // namespace ambervane
