#ifndef AMBERVANE_IMAPKIT_SOCKET_H_
#define AMBERVANE_IMAPKIT_SOCKET_H_

#include <openssl/ssl.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "base/bytes.h"
#include "base/file.h"
#include "imapkit/diagnostics.h"
#include "imapkit/imap_server.h"

namespace ambervane {

/// A connected socket that does not block, with TLS on it or not.
class Socket {
 public:
  /// What became of one step.
  struct Step {
    std::size_t count = 0;  ///< bytes moved; of a handshake 1
    short waitFor = 0;      ///< POLLIN or POLLOUT: again when ready
    bool ended = false;     ///< the other side closed the connection
    std::optional<NetworkError> failure = std::nullopt;
  };

  /// Takes over a connected socket.
  explicit Socket(FileHandle handle);
  /// Says goodbye where TLS stands, and closes.
  ~Socket();
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  /// Sets TLS up. The certificate must be one the system trusts, for `hostName` (a name in ASCII,
  /// or an address), unless the server allows any. Then `handshake` until it is through.
  std::optional<NetworkError> startTLS(const IMAPServer& server, const std::string& hostName);
  Step handshake();
  Step read(char* into, std::size_t room);
  Step write(BytesView bytes);
  int descriptor() const noexcept { return handle_.descriptor(); }

 private:
  friend struct SocketBIO;
  struct Free {
    void operator()(SSL_CTX* context) const noexcept { SSL_CTX_free(context); }
    void operator()(SSL* tls) const noexcept { SSL_free(tls); }
  };
  Step plainStep(ssize_t result, short waitFor) const;
  Step tlsStep(int result, std::size_t count);

  FileHandle handle_;
  std::unique_ptr<SSL_CTX, Free> context_;
  std::unique_ptr<SSL, Free> tls_;
  int error_ = 0;  ///< the errno value of what TLS last asked of the socket
  bool secured_ = false;
};

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_SOCKET_H_
