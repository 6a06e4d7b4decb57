#include "imapkit/imap_transport.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "base/text.h"
#include "imapkit/connector.h"
#include "imapkit/imap_error.h"
#include "imapkit/socket.h"
#include "platform/secret.h"

namespace ambervane {
namespace {

/// Of a received line, so that a long one does not flood the trace.
constexpr std::size_t kTracedBytes = 512;

}  // namespace

IMAPTransport::IMAPTransport(IMAPServer server, CancellationCheck shouldCancel)
    : server_(std::move(server)), shouldCancel_(std::move(shouldCancel)) {
  if (server_.port == 0) server_.port = kTlsPort;
}

IMAPTransport::~IMAPTransport() = default;

void IMAPTransport::connect() {
  const Deadline deadline(server_.timeout);
  const auto diagnosed = [this](const NetworkError& error) {
    return IMAPError(IMAPError::Diagnosed{IMAPDiagnostics::describe(error, server_)});
  };
  const std::string hostName = asciiHostName(server_.host);
  const auto addresses = lookUp(server_, hostName, deadline, shouldCancel_);
  auto socket = std::make_unique<Socket>(connectToAny(addresses, server_, deadline, shouldCancel_));
  reachedServer_ = true;
  if (server_.useTLS) {
    if (const auto error = socket->startTLS(server_, hostName)) throw diagnosed(*error);
    for (;;) {
      const Socket::Step step = socket->handshake();
      if (step.failure) throw diagnosed(*step.failure);
      if (step.count > 0) break;
      pollfd polled{socket->descriptor(), step.waitFor, 0};
      if (!waitUntilReady({&polled, 1}, deadline, shouldCancel_) || deadline.hasPassed()) {
        throw IMAPError(IMAPError::Diagnosed{IMAPDiagnostics::connectTimedOut(server_)});
      }
    }
    completedTLS_ = true;
  }
  socket_ = std::move(socket);
}

void IMAPTransport::close() noexcept { socket_.reset(); }

std::string IMAPTransport::masked(std::string_view text) const {
  std::string result(text);
  for (const std::string_view secret : secrets_) result = maskSecret(result, secret);
  return result;
}

void IMAPTransport::sendLine(std::string_view line) {
  if (trace_) trace_(masked(line), true);
  send(Secret::joined({line, "\r\n"}).view());
}

void IMAPTransport::send(BytesView bytes) {
  while (!bytes.empty()) {
    if (!socket_) throw IMAPError(IMAPError::NotConnected{});
    throwIfCancelled(shouldCancel_);
    const Socket::Step step = socket_->write(bytes);
    if (step.failure) fail(*step.failure);
    if (step.ended) fail(NetworkError::system(ECONNRESET));
    if (step.waitFor != 0) wait(step.waitFor);
    bytes.remove_prefix(step.count);
    bytesSent_ += static_cast<std::int64_t>(step.count);
  }
}

std::size_t IMAPTransport::receive(char* into, std::size_t room) {
  for (;;) {
    if (!socket_) throw IMAPError(IMAPError::NotConnected{});
    throwIfCancelled(shouldCancel_);
    const Socket::Step step = socket_->read(into, room);
    if (step.failure) fail(*step.failure);
    if (step.ended) throw IMAPError(IMAPError::ConnectionFailed{"server closed the connection"});
    if (step.count > 0) {
      bytesReceived_ += static_cast<std::int64_t>(step.count);
      return step.count;
    }
    wait(step.waitFor);
  }
}

void IMAPTransport::wait(short events) const {
  pollfd polled{socket_->descriptor(), events, 0};
  if (waitUntilReady({&polled, 1}, Deadline(server_.timeout), shouldCancel_)) return;
  throw IMAPError(IMAPError::TimedOut{
      fmt::format("{} accepted the connection but sent nothing for {:.0f} seconds", server_.host,
                  std::floor(server_.timeout))});
}

void IMAPTransport::lineWasRead(std::string_view line) {
  if (!trace_) return;
  // A challenge of a sign-in is in base64, in which no secret can be found.
  const bool isChallenge = !secrets_.empty() && line.starts_with("+ ") && line.size() > 2;
  trace_(isChallenge ? maskSecret(line, line.substr(2))
                     : repairedUtf8(masked(line).substr(0, kTracedBytes)),
         false);
}

void IMAPTransport::fail(const NetworkError& error) const {
  // Once the server has spoken, what helps with a connection that cannot be made misleads.
  if (bytesReceived_ > 0) throw IMAPError(IMAPError::ConnectionFailed{error.text});
  throw IMAPError(IMAPError::Diagnosed{IMAPDiagnostics::describe(error, server_)});
}

}  // namespace ambervane
