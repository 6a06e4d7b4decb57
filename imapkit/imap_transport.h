#ifndef AMBERVANE_IMAPKIT_IMAP_TRANSPORT_H_
#define AMBERVANE_IMAPKIT_IMAP_TRANSPORT_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "imapkit/bounded_wait.h"
#include "imapkit/byte_stream.h"
#include "imapkit/diagnostics.h"
#include "imapkit/imap_server.h"

namespace ambervane {

class Socket;

/// One connection to a server, encrypted from its first byte or not at all. Connected once, closed
/// once, used by one thread. Every wait ends at the server's `timeout` or when `shouldCancel` says
/// yes; after any throw the transport is only good for `close`.
class IMAPTransport final : public ByteStream {
 public:
  /// Told each line that is sent (true) or received (false, its first 512 bytes), secrets masked.
  using TraceHandler = std::function<void(std::string_view line, bool sent)>;

  /// No network activity. `shouldCancel` may be empty; it is asked several times a second while
  /// something is waited for, on the calling thread.
  explicit IMAPTransport(IMAPServer server, CancellationCheck shouldCancel = nullptr);
  ~IMAPTransport() override;

  /// Looks the host up, tries its addresses in turn and, where asked for, makes TLS: all within one
  /// timeout. Throws IMAPError (Diagnosed, Cancelled).
  void connect();
  /// Safe to call twice.
  void close() noexcept;

  /// Sends `line` and CRLF. Sending and reading throw IMAPError (NotConnected, ConnectionFailed,
  /// Diagnosed, TimedOut, Cancelled).
  void sendLine(std::string_view line);
  /// Sends without tracing. Each wait for the server to take more has the whole timeout.
  void send(BytesView bytes);

  const IMAPServer& server() const noexcept { return server_; }
  void setTraceHandler(TraceHandler handler) { trace_ = std::move(handler); }
  /// Until `popSecret`, which it must outlive, a secret is masked in every traced line.
  void pushSecret(std::string_view secret) { secrets_.push_back(secret); }
  void popSecret() noexcept { secrets_.pop_back(); }
  std::int64_t bytesReceived() const noexcept { return bytesReceived_; }
  std::int64_t bytesSent() const noexcept { return bytesSent_; }
  /// Whether a TCP connection came about, also when what followed failed.
  bool reachedServer() const noexcept { return reachedServer_; }
  /// Whether TLS was made, certificate included.
  bool completedTLS() const noexcept { return completedTLS_; }

 private:
  std::string masked(std::string_view text) const;
  std::size_t receive(char* into, std::size_t room) override;
  void lineWasRead(std::string_view line) override;
  /// Waits until the socket is ready for `events`. Throws IMAPError (TimedOut, Cancelled).
  void wait(short events) const;
  /// Throws for a failure of a connection that stands.
  [[noreturn]] void fail(const NetworkError& error) const;

  IMAPServer server_;
  CancellationCheck shouldCancel_;
  std::unique_ptr<Socket> socket_;
  TraceHandler trace_;
  std::vector<std::string_view> secrets_;
  std::int64_t bytesReceived_ = 0;
  std::int64_t bytesSent_ = 0;
  bool reachedServer_ = false;
  bool completedTLS_ = false;
};

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_IMAP_TRANSPORT_H_
