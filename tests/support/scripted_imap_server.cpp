#include "tests/support/scripted_imap_server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "base/text.h"

namespace ambervane {
namespace {

constexpr int kPauseMilliseconds = 20;
constexpr int kMaxSeconds = 20;  // of silence of a client, before the server gives up

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(std::string("scripted server: no ") + what);
}

sockaddr* generic(sockaddr_in& address) { return reinterpret_cast<sockaddr*>(&address); }

/// The size of the literal a line ends with, and whether the client waits for a "+".
std::optional<std::pair<std::size_t, bool>> literalOf(std::string_view line) {
  const std::size_t begin = line.rfind('{');
  if (!line.ends_with('}') || begin == line.npos) return std::nullopt;
  std::string_view digits = line.substr(begin + 1, line.size() - begin - 2);
  const bool waits = !digits.ends_with('+');
  if (!waits) digits.remove_suffix(1);
  const auto size = parseInteger(digits);
  if (!size) return std::nullopt;
  return std::pair(static_cast<std::size_t>(*size), waits);
}

}  // namespace

/// One client. Reading and sending are false once it is gone.
class ScriptedIMAPServer::Connection {
 public:
  Connection(int descriptor, SSL_CTX* tls, const std::atomic<bool>& isEnding, std::size_t piece)
      : handle_(descriptor), isEnding_(isEnding), piece_(piece) {
    const timeval limit{kMaxSeconds, 0};
    ::setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    ::setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    const int on = 1;
    ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (tls == nullptr) return;
    tls_.reset(SSL_new(tls));
    SSL_set_fd(tls_.get(), descriptor);
    isOpen_ = awaitData() && SSL_accept(tls_.get()) == 1;
  }

  bool isOpen() const noexcept { return isOpen_; }

  /// Sends a reply; false when the script ended the connection with it.
  bool say(std::string_view text, const std::string& tag) {
    while (!text.empty() && isOpen_) {
      const std::size_t plain = std::min(text.find('$'), text.size());
      if (plain > 0 || text.size() == 1) {
        send(text.substr(0, std::max<std::size_t>(plain, 1)));
        text.remove_prefix(std::max<std::size_t>(plain, 1));
        continue;
      }
      perform(text[1], tag);
      text.remove_prefix(2);
    }
    return isOpen_;
  }

  bool readLine(std::string& line) {
    line.clear();
    for (;;) {
      const std::size_t end = held_.find("\r\n");
      if (end != held_.npos) {
        line = held_.substr(0, end);
        held_.erase(0, end + 2);
        return true;
      }
      if (!fill()) return false;
    }
  }

  bool readBytes(std::size_t count, std::string& bytes) {
    while (held_.size() < count) {
      if (!fill()) return false;
    }
    bytes = held_.substr(0, count);
    held_.erase(0, count);
    return true;
  }

 private:
  struct Free {
    void operator()(SSL* tls) const noexcept { SSL_free(tls); }
  };

  void perform(char mark, const std::string& tag) {
    switch (mark) {
      case 'T':
        send(tag);
        break;
      case 'R': {
        const linger now{1, 0};
        ::setsockopt(handle_.descriptor(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
        isOpen_ = false;
        break;
      }
      case 'H':
        while (fill()) held_.clear();
        break;
      case 'C':
        if (tls_) SSL_shutdown(tls_.get());
        isOpen_ = false;
        break;
      default:
        send(std::string{'$', mark});
    }
  }

  void send(std::string_view bytes) {
    while (!bytes.empty() && isOpen_) {
      const std::size_t size = std::min(bytes.size(), piece_);
      const auto sent = tls_ ? SSL_write(tls_.get(), bytes.data(), static_cast<int>(size))
                             : ::send(handle_.descriptor(), bytes.data(), size, 0);
      isOpen_ = sent > 0;
      if (isOpen_) bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
  }

  bool awaitData() const {
    for (int waited = 0; waited < kMaxSeconds * 1000; waited += kPauseMilliseconds) {
      pollfd polled{handle_.descriptor(), POLLIN, 0};
      if (isEnding_) return false;
      if (::poll(&polled, 1, kPauseMilliseconds) > 0) return true;
    }
    return false;
  }

  bool fill() {
    char piece[4096];
    const bool isPending = tls_ && SSL_pending(tls_.get()) > 0;
    if (!isOpen_ || !(isPending || awaitData())) return isOpen_ = false;
    const auto count = tls_ ? SSL_read(tls_.get(), piece, sizeof piece)
                            : ::recv(handle_.descriptor(), piece, sizeof piece, 0);
    if (count <= 0) return isOpen_ = false;
    held_.append(piece, static_cast<std::size_t>(count));
    return true;
  }

  FileHandle handle_;
  std::unique_ptr<SSL, Free> tls_;
  const std::atomic<bool>& isEnding_;
  std::size_t piece_;
  std::string held_;
  bool isOpen_ = true;
};

ScriptedIMAPServer::ScriptedIMAPServer(IMAPScript script, const TestCertificate* certificate)
    : script_(std::move(script)), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  require(::bind(listener_.descriptor(), generic(address), size) == 0 &&
              ::listen(listener_.descriptor(), 8) == 0 &&
              ::getsockname(listener_.descriptor(), generic(address), &size) == 0,
          "port");
  port_ = ntohs(address.sin_port);
  if (certificate != nullptr) {
    tls_ = std::shared_ptr<SSL_CTX>(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    auto* const context = static_cast<SSL_CTX*>(tls_.get());
    require(
        SSL_CTX_use_certificate_file(context, certificate->certificate.c_str(), SSL_FILETYPE_PEM) ==
                1 &&
            SSL_CTX_use_PrivateKey_file(context, certificate->key.c_str(), SSL_FILETYPE_PEM) == 1,
        "certificate");
  }
  thread_ = std::thread([this] { run(); });
}

ScriptedIMAPServer::~ScriptedIMAPServer() {
  isEnding_ = true;
  thread_.join();
}

IMAPServer ScriptedIMAPServer::address(double timeout) const {
  return {.host = tls_ ? "localhost" : "127.0.0.1",
          .port = port_,
          .useTLS = tls_ != nullptr,
          .timeout = timeout};
}

std::vector<std::string> ScriptedIMAPServer::received() const {
  const std::lock_guard guard(lock_);
  return received_;
}

void ScriptedIMAPServer::note(std::string line) {
  const std::lock_guard guard(lock_);
  received_.push_back(std::move(line));
}

void ScriptedIMAPServer::run() {
  // TLS writes to clients that are gone; the signal for it is for this thread alone.
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
  while (!isEnding_) {
    pollfd polled{listener_.descriptor(), POLLIN, 0};
    if (::poll(&polled, 1, kPauseMilliseconds) <= 0) continue;
    const int client = ::accept(listener_.descriptor(), nullptr, nullptr);
    if (client < 0) continue;
    Connection connection(client, static_cast<SSL_CTX*>(tls_.get()), isEnding_, script_.pieceBytes);
    converse(connection);
  }
}

void ScriptedIMAPServer::converse(Connection& connection) {
  std::string tag;
  std::string line;
  if (!connection.say(script_.greeting, tag)) return;
  while (connection.readLine(line)) {
    note(line);
    std::string command = line;
    const std::size_t blank = line.find(' ');
    if (line.size() > 1 && line[0] == 'M' && isAsciiDigit(line[1]) && blank != line.npos) {
      tag = line.substr(0, blank);
      command = line.substr(blank + 1);
    }
    std::string reply = replyTo(command);
    if (const auto literal = literalOf(line)) {
      if (reply.starts_with("$!")) {
        reply.erase(0, 2);
      } else {
        if (literal->second && !connection.say("+ ready\r\n", tag)) return;
        std::string bytes;
        if (!connection.readBytes(literal->first, bytes)) return;
        note(bytes);
        if (!connection.readLine(line)) return;
      }
    }
    if (!connection.say(reply, tag)) return;
  }
}

std::string ScriptedIMAPServer::replyTo(std::string_view line) {
  auto& replies = script_.replies;
  for (auto found = replies.begin(); found != replies.end(); ++found) {
    if (!line.starts_with(found->first)) continue;
    const std::string reply = found->second;
    const auto sameBeginning = [&](const auto& other) { return other.first == found->first; };
    if (std::any_of(std::next(found), replies.end(), sameBeginning)) replies.erase(found);
    return reply;
  }
  return "$T OK done\r\n";
}

}  // namespace ambervane
