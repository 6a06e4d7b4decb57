#ifndef AMBERVANE_IMAPKIT_IMAP_SERVER_H_
#define AMBERVANE_IMAPKIT_IMAP_SERVER_H_

#include <cstdint>
#include <string>

namespace ambervane {

/// IMAP over TLS (RFC 8314, section 7.2).
inline constexpr std::uint16_t kTlsPort = 993;

/// Where a mail server is and how it is spoken to.
struct IMAPServer {
  std::string host;  ///< UTF-8: a name, or an address of IPv4 or IPv6 without brackets
  std::uint16_t port = kTlsPort;
  bool useTLS = true;
  bool allowUntrustedCertificate = false;
  double timeout = 30;  ///< seconds, for each wait separately

  /// "host:port (TLS)" or "host:port (no TLS)".
  std::string text() const;
  friend bool operator==(const IMAPServer&, const IMAPServer&) = default;
};

/// What a connection may do at the server. Read-only is kept by the client itself.
enum class IMAPAccessMode { readOnly, readWrite };
/// "read-only" or "read-write".
std::string accessModeText(IMAPAccessMode mode);

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_IMAP_SERVER_H_
