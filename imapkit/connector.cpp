#include "imapkit/connector.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <unicode/idna.h>
#include <unicode/uidna.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "base/text.h"
#include "imapkit/imap_error.h"

namespace ambervane {
namespace {

using std::chrono::steady_clock;

/// How long an address may stay silent before the next one is tried beside it (RFC 8305 section 5).
constexpr std::chrono::milliseconds kHeadStart{250};

[[noreturn]] void fail(const NetworkError& error, const IMAPServer& server) {
  throw IMAPError(IMAPError::Diagnosed{IMAPDiagnostics::describe(error, server)});
}

[[noreturn]] void failLate(const IMAPServer& server) {
  throw IMAPError(IMAPError::Diagnosed{IMAPDiagnostics::connectTimedOut(server)});
}

struct LookupResult {
  int code = 0;
  int error = 0;  ///< errno, with EAI_SYSTEM
  std::vector<SocketAddress> addresses;
};

LookupResult askSystem(const std::string& hostName, const std::string& port, int flags) {
  addrinfo wanted{};
  wanted.ai_family = AF_UNSPEC;
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = AI_NUMERICSERV | flags;
  addrinfo* found = nullptr;
  LookupResult result;
  result.code = ::getaddrinfo(hostName.c_str(), port.c_str(), &wanted, &found);
  result.error = errno;
  if (result.code != 0) return result;
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    if (entry->ai_addrlen > sizeof(sockaddr_storage)) continue;
    SocketAddress address;
    std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
    address.size = entry->ai_addrlen;
    result.addresses.push_back(address);
  }
  ::freeaddrinfo(found);
  return result;
}

/// The system's lookup cannot be given a time or be interrupted. It runs on a thread of its own,
/// which is left to itself when the answer comes too late.
struct PendingLookup {
  std::mutex lock;
  std::condition_variable done;
  std::optional<LookupResult> result;
};

/// What the failed addresses of a host are to be remembered for: a host that answered says more
/// than a network that does not lead there.
bool saysMore(int error, int than) noexcept {
  const auto isUnreachable = [](int e) {
    return e == ENETUNREACH || e == EHOSTUNREACH || e == ENETDOWN || e == EAFNOSUPPORT ||
           e == EADDRNOTAVAIL;
  };
  return than == 0 || !isUnreachable(error) || isUnreachable(than);
}

FileHandle makeSocket(int family) {
#ifdef SOCK_CLOEXEC
  return FileHandle(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
#else
  FileHandle handle(::socket(family, SOCK_STREAM, 0));
  if (handle) {
    ::fcntl(handle.descriptor(), F_SETFD, FD_CLOEXEC);
    ::fcntl(handle.descriptor(), F_SETFL, O_NONBLOCK);
  }
  return handle;
#endif
}

/// Attempts at several addresses, running beside each other.
class Attempts {
 public:
  /// Begins with one more address; a socket that is connected at once is the answer.
  std::optional<FileHandle> begin(const SocketAddress& address) {
    FileHandle handle = makeSocket(address.storage.ss_family);
    if (!handle) {
      remember(errno);
      return std::nullopt;
    }
    const auto* target = reinterpret_cast<const sockaddr*>(&address.storage);
    if (::connect(handle.descriptor(), target, address.size) == 0) return handle;
    if (errno == EINPROGRESS || errno == EINTR) {
      polled_.push_back({handle.descriptor(), POLLOUT, 0});
      handles_.push_back(std::move(handle));
    } else {
      remember(errno);
    }
    return std::nullopt;
  }

  /// The first of those that are ready which is connected; the failed ones are dropped.
  std::optional<FileHandle> collect() {
    for (std::size_t i = 0; i < polled_.size();) {
      if (polled_[i].revents == 0) {
        ++i;
        continue;
      }
      int error = 0;
      socklen_t size = sizeof error;
      if (::getsockopt(polled_[i].fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
      if (error == 0) return std::move(handles_[i]);
      remember(error);
      handles_.erase(handles_.begin() + static_cast<std::ptrdiff_t>(i));
      polled_.erase(polled_.begin() + static_cast<std::ptrdiff_t>(i));
    }
    return std::nullopt;
  }

  std::span<pollfd> polled() noexcept { return polled_; }
  int error() const noexcept { return error_; }

 private:
  void remember(int error) {
    if (saysMore(error, error_)) error_ = error;
  }

  std::vector<FileHandle> handles_;
  std::vector<pollfd> polled_;
  int error_ = 0;
};

}  // namespace

std::string asciiHostName(const std::string& host) {
  std::string name = host;
  if (!isAscii(host)) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::IDNA> idna(
        icu::IDNA::createUTS46Instance(UIDNA_NONTRANSITIONAL_TO_ASCII, status));
    std::string ascii;
    icu::StringByteSink<std::string> sink(&ascii);
    icu::IDNAInfo info;
    if (U_SUCCESS(status)) idna->nameToASCII_UTF8(host, sink, info, status);
    if (U_SUCCESS(status) && !info.hasErrors()) name = ascii;
  }
  if (name.size() > 1 && name.ends_with('.')) name.pop_back();
  return name;
}

std::vector<SocketAddress> lookUp(const IMAPServer& server, const std::string& hostName,
                                  const Deadline& deadline, const CancellationCheck& shouldCancel) {
  const std::string port = std::to_string(server.port);
  LookupResult numeric = askSystem(hostName, port, AI_NUMERICHOST);
  if (numeric.code == 0) return std::move(numeric.addresses);

  const auto pending = std::make_shared<PendingLookup>();
  std::thread([pending, hostName, port] {
    LookupResult result = askSystem(hostName, port, 0);
    const std::lock_guard lock(pending->lock);
    pending->result = std::move(result);
    pending->done.notify_one();
  }).detach();

  std::unique_lock lock(pending->lock);
  while (!pending->result) {
    throwIfCancelled(shouldCancel);
    if (deadline.hasPassed()) failLate(server);
    pending->done.wait_until(lock,
                             deadline.cappedAt(steady_clock::now() + kCancellationPause).time());
  }
  if (pending->result->code != 0) {
    fail(NetworkError::lookup(pending->result->code, pending->result->error), server);
  }
  return std::move(pending->result->addresses);
}

FileHandle connectToAny(const std::vector<SocketAddress>& addresses, const IMAPServer& server,
                        const Deadline& deadline, const CancellationCheck& shouldCancel) {
  Attempts attempts;
  auto next = addresses.begin();
  auto nextTime = steady_clock::now();
  for (;;) {
    const bool isTime = attempts.polled().empty() || steady_clock::now() >= nextTime;
    if (next != addresses.end() && isTime) {
      if (auto connected = attempts.begin(*next++)) return std::move(*connected);
      nextTime = steady_clock::now() + kHeadStart;
      continue;
    }
    if (attempts.polled().empty()) fail(NetworkError::system(attempts.error()), server);
    const Deadline pause = next == addresses.end() ? deadline : deadline.cappedAt(nextTime);
    if (waitUntilReady(attempts.polled(), pause, shouldCancel)) {
      if (auto connected = attempts.collect()) return std::move(*connected);
      nextTime = steady_clock::now();
    }
    if (deadline.hasPassed()) failLate(server);
  }
}

}  // namespace ambervane
