#include "imapkit/socket.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <utility>

namespace ambervane {
namespace {

#ifdef MSG_NOSIGNAL
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

/// What TLS reads from the socket at a time. Without it every record costs two calls.
constexpr std::size_t kTlsReadBytes = 131072;

bool wouldBlock(int error) noexcept {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

bool isAddress(const std::string& hostName) {
  ASN1_OCTET_STRING* address = a2i_IPADDRESS(hostName.c_str());
  ASN1_OCTET_STRING_free(address);
  return address != nullptr;
}

/// Makes the certificate's name count. An address is looked for among the certificate's addresses
/// and not told to the server (RFC 6066 section 3).
bool expectHost(SSL* tls, const std::string& hostName) {
  if (isAddress(hostName)) {
    return X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(tls), hostName.c_str()) == 1;
  }
  SSL_set_hostflags(tls, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  return SSL_set_tlsext_host_name(tls, hostName.c_str()) == 1 &&
         SSL_set1_host(tls, hostName.c_str()) == 1;
}

}  // namespace

/// How TLS reads and writes the socket: as OpenSSL's own way does, but a connection that is gone
/// raises no SIGPIPE.
struct SocketBIO {
  static int read(BIO* bio, char* into, int room) {
    return done(bio, ::recv(of(bio).descriptor(), into, static_cast<std::size_t>(room), 0), true);
  }
  static int write(BIO* bio, const char* bytes, int count) {
    const auto size = static_cast<std::size_t>(count);
    return done(bio, ::send(of(bio).descriptor(), bytes, size, kSendFlags), false);
  }
  static long control(BIO* bio, int command, long /*number*/, void* /*pointer*/) {
    if (command == BIO_CTRL_EOF) return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0 ? 1 : 0;
    return command == BIO_CTRL_FLUSH ? 1 : 0;
  }

  static BIO* make(Socket& socket) {
    static BIO_METHOD* const method = [] {
      BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "socket");
      BIO_meth_set_read(made, read);
      BIO_meth_set_write(made, write);
      BIO_meth_set_ctrl(made, control);
      return made;
    }();
    BIO* const bio = BIO_new(method);
    if (bio == nullptr) return nullptr;
    BIO_set_data(bio, &socket);
    BIO_set_init(bio, 1);
    return bio;
  }

 private:
  static Socket& of(BIO* bio) { return *static_cast<Socket*>(BIO_get_data(bio)); }

  static int done(BIO* bio, ssize_t result, bool reads) {
    of(bio).error_ = result < 0 && !wouldBlock(errno) ? errno : 0;
    BIO_clear_retry_flags(bio);
    if (result < 0 && wouldBlock(errno)) {
      reads ? BIO_set_retry_read(bio) : BIO_set_retry_write(bio);
    } else if (reads && result == 0) {
      BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
    }
    return static_cast<int>(result);
  }
};

Socket::Socket(FileHandle handle) : handle_(std::move(handle)) {
  const int on = 1;
  // Without success only slower: there is nothing to tell.
  ::setsockopt(descriptor(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  ::setsockopt(descriptor(), SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
#ifdef SO_NOSIGPIPE
  ::setsockopt(descriptor(), SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
}

Socket::~Socket() {
  if (secured_) SSL_shutdown(tls_.get());
  ERR_clear_error();
}

std::optional<NetworkError> Socket::startTLS(const IMAPServer& server,
                                             const std::string& hostName) {
  ERR_clear_error();
  context_.reset(SSL_CTX_new(TLS_client_method()));
  if (!context_) return NetworkError::tls(ERR_get_error());
  const bool checks = !server.allowUntrustedCertificate;
  SSL_CTX_set_verify(context_.get(), checks ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
  SSL_CTX_set_mode(context_.get(),
                   SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  SSL_CTX_set_read_ahead(context_.get(), 1);
  SSL_CTX_set_default_read_buffer_len(context_.get(), kTlsReadBytes);
  if (checks) SSL_CTX_set_default_verify_paths(context_.get());
  tls_.reset(SSL_new(context_.get()));
  BIO* const bio = tls_ ? SocketBIO::make(*this) : nullptr;
  if (bio == nullptr) return NetworkError::tls(ERR_get_error());
  SSL_set_bio(tls_.get(), bio, bio);
  if (!expectHost(tls_.get(), hostName)) return NetworkError::tls(ERR_get_error());
  return std::nullopt;
}

Socket::Step Socket::handshake() {
  ERR_clear_error();
  const int result = SSL_connect(tls_.get());
  if (result == 1) {
    secured_ = true;
    return {.count = 1};
  }
  Step step = tlsStep(result, 0);
  if (step.waitFor != 0) return step;
  const long verified = SSL_get_verify_result(tls_.get());
  if (SSL_get_verify_mode(tls_.get()) == SSL_VERIFY_PEER && verified != X509_V_OK) {
    step.failure = NetworkError::certificate(verified);
  } else if (step.ended) {
    step.failure = NetworkError::handshake(0);
  }
  return step;
}

Socket::Step Socket::read(char* into, std::size_t room) {
  if (!tls_) return plainStep(::recv(descriptor(), into, room, 0), POLLIN);
  ERR_clear_error();
  std::size_t count = 0;
  const int result = SSL_read_ex(tls_.get(), into, room, &count);
  return tlsStep(result, count);
}

Socket::Step Socket::write(BytesView bytes) {
  if (!tls_)
    return plainStep(::send(descriptor(), bytes.data(), bytes.size(), kSendFlags), POLLOUT);
  ERR_clear_error();
  std::size_t count = 0;
  const int result = SSL_write_ex(tls_.get(), bytes.data(), bytes.size(), &count);
  return tlsStep(result, count);
}

Socket::Step Socket::plainStep(ssize_t result, short waitFor) const {
  if (result > 0) return {.count = static_cast<std::size_t>(result)};
  if (result == 0) return {.ended = true};
  if (wouldBlock(errno)) return {.waitFor = waitFor};
  return {.failure = NetworkError::system(errno)};
}

Socket::Step Socket::tlsStep(int result, std::size_t count) {
  if (result == 1) return {.count = count};
  switch (SSL_get_error(tls_.get(), result)) {
    case SSL_ERROR_WANT_READ:
      return {.waitFor = POLLIN};
    case SSL_ERROR_WANT_WRITE:
      return {.waitFor = POLLOUT};
    case SSL_ERROR_ZERO_RETURN:
      return {.ended = true};
    default:
      break;
  }
  const bool wasSecured = std::exchange(secured_, false);  // no goodbye on a broken session
  const unsigned long code = ERR_get_error();
  if (ERR_GET_REASON(code) == SSL_R_UNEXPECTED_EOF_WHILE_READING) return {.ended = true};
  if (error_ != 0) return {.failure = NetworkError::system(error_)};
  if (code == 0) return {.ended = true};
  return {.failure = wasSecured ? NetworkError::tls(code) : NetworkError::handshake(code)};
}

}  // namespace ambervane
