#ifndef AMBERVANE_TESTS_SUPPORT_HTTP_SERVER_H_
#define AMBERVANE_TESTS_SUPPORT_HTTP_SERVER_H_

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "base/file.h"

namespace ambervane {

/// Answers on 127.0.0.1, one connection after another and one request on each, on a thread of its
/// own. Nothing it waits for takes longer than five seconds.
class HttpServer {
 public:
  /// One request, and the way back.
  struct Connection {
    FileHandle socket;
    const std::atomic<bool>& stopped;
    std::string head;
    Bytes body;

    /// False when the client has gone.
    bool send(BytesView bytes) const {
      return ::send(socket.descriptor(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
             static_cast<ssize_t>(bytes.size());
    }
    void reply(const std::string& status, BytesView content, const std::string& header = "") const {
      send("HTTP/1.1 " + status + "\r\nConnection: close\r\n" + header +
           "Content-Length: " + std::to_string(content.size()) + "\r\n\r\n" + Bytes(content));
    }
    /// Waits until there is something to read or the client has gone.
    bool wait() const {
      pollfd ready{socket.descriptor(), POLLIN, 0};
      for (int i = 0; i < 100 && !stopped; ++i) {
        if (::poll(&ready, 1, 50) > 0) return true;
      }
      return false;
    }
  };
  using Handler = std::function<void(const Connection&)>;

  explicit HttpServer(Handler handler)
      : handler_(std::move(handler)), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof(address);
    if (::bind(listener_.descriptor(), plain, size) != 0 ||
        ::listen(listener_.descriptor(), 8) != 0 ||
        ::getsockname(listener_.descriptor(), plain, &size) != 0) {
      throw std::runtime_error("no loopback server");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~HttpServer() {
    stopped_ = true;
    thread_.join();
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/tsr"; }

 private:
  void serve() {
    pollfd ready{listener_.descriptor(), POLLIN, 0};
    while (!stopped_) {
      if (::poll(&ready, 1, 50) <= 0) continue;
      Connection connection{
          FileHandle(::accept4(ready.fd, nullptr, nullptr, SOCK_CLOEXEC)), stopped_, {}, {}};
      const timeval limit{5, 0};
      ::setsockopt(connection.socket.descriptor(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
      if (read(connection)) handler_(connection);
    }
  }
  static bool read(Connection& connection) {
    std::string text;
    std::array<char, 4096> buffer{};
    while (connection.wait()) {
      const ssize_t count = ::recv(connection.socket.descriptor(), buffer.data(), buffer.size(), 0);
      if (count <= 0) return false;
      text.append(buffer.data(), static_cast<std::size_t>(count));
      const std::size_t end = text.find("\r\n\r\n");
      const std::size_t length = text.find("Content-Length: ");
      if (end == std::string::npos) continue;
      connection.head = text.substr(0, end);
      connection.body = text.substr(end + 4);
      if (length >= end || connection.body.size() >= std::stoul(text.substr(length + 16)))
        return true;
    }
    return false;
  }

  Handler handler_;
  FileHandle listener_;
  int port_ = 0;
  std::atomic<bool> stopped_{false};
  std::thread thread_;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_HTTP_SERVER_H_
