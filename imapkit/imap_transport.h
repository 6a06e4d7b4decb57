#ifndef AMBERVANE_IMAPKIT_IMAP_TRANSPORT_H_
#define AMBERVANE_IMAPKIT_IMAP_TRANSPORT_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

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
  explicit IMAPTransport(IMAPServer server, std::function<bool()> shouldCancel = nullptr);
  ~IMAPTransport() override;

  /// Looks the host up, tries its addresses in turn and, where asked for, makes TLS: all within one
  /// timeout. Throws IMAPError (Diagnosed, Cancelled).
  void connect();
  /// Safe to call twice.
  void close() noexcept;

  /// Sends `line` and CRLF. `secret`, a part of the line, is masked in the trace. Throws IMAPError
  /// (NotConnected, ConnectionFailed, Diagnosed, TimedOut, Cancelled), as all below.
  void sendLine(std::string_view line, std::string_view secret = {});
  /// Sends without tracing. Each wait for the server to take more has the whole timeout.
  void send(BytesView bytes);

  const IMAPServer& server() const noexcept { return server_; }
  void setTraceHandler(TraceHandler handler) { trace_ = std::move(handler); }
  /// Masked in traced lines, those received included, until it is set again. Must outlive that.
  void maskInTrace(std::string_view secret) noexcept { masked_ = secret; }
  std::int64_t bytesReceived() const noexcept { return bytesReceived_; }
  std::int64_t bytesSent() const noexcept { return bytesSent_; }
  /// Whether a TCP connection came about, also when what followed failed.
  bool reachedServer() const noexcept { return reachedServer_; }
  /// Whether TLS was made, certificate included.
  bool completedTLS() const noexcept { return completedTLS_; }

 private:
  std::size_t receive(char* into, std::size_t room) override;
  void lineWasRead(std::string_view line) override;
  void traceLine(std::string_view line, std::string_view secret, bool sent) const;
  /// Throws for a failure of a connection that stands.
  [[noreturn]] void fail(const NetworkError& error) const;

  IMAPServer server_;
  std::function<bool()> shouldCancel_;
  std::unique_ptr<Socket> socket_;
  TraceHandler trace_;
  std::string_view masked_;
  std::int64_t bytesReceived_ = 0;
  std::int64_t bytesSent_ = 0;
  bool reachedServer_ = false;
  bool completedTLS_ = false;
};

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_IMAP_TRANSPORT_H_
