#ifndef AMBERVANE_TESTS_SUPPORT_HTTP_SERVER_H_
#define AMBERVANE_TESTS_SUPPORT_HTTP_SERVER_H_

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <functional>
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
    std::string head;
    Bytes body;

    /// False when the client has gone.
    bool send(BytesView bytes) const {
      return ::send(socket.descriptor(), bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0;
    }
    void reply(const std::string& status, BytesView content, const std::string& header = "") const {
      send("HTTP/1.1 " + status + "\r\nConnection: close\r\n" + header +
           "Content-Length: " + std::to_string(content.size()) + "\r\n\r\n" + Bytes(content));
    }
    /// Whether, within that time, there is something to read or the client goes.
    bool wait(int milliseconds) const {
      pollfd ready{socket.descriptor(), POLLIN, 0};
      return ::poll(&ready, 1, milliseconds) > 0;
    }
  };
  using Handler = std::function<void(const Connection&)>;

  explicit HttpServer(Handler handler) : handler_(std::move(handler)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof(address);
    ::bind(listener_.socket.descriptor(), plain, size);
    ::listen(listener_.socket.descriptor(), 8);
    ::getsockname(listener_.socket.descriptor(), plain, &size);
    url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/tsr";
    thread_ = std::thread([this] {
      while (!stopped_) {
        if (listener_.wait(50)) serveOne();
      }
    });
  }
  ~HttpServer() {
    stopped_ = true;
    thread_.join();
  }
  const std::string& url() const { return url_; }

 private:
  void serveOne() const {
    Connection client{
        FileHandle(::accept(listener_.socket.descriptor(), nullptr, nullptr)), {}, {}};
    const timeval limit{5, 0};
    ::setsockopt(client.socket.descriptor(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    std::string text;
    char byte = 0;
    while (client.wait(5000) && ::recv(client.socket.descriptor(), &byte, 1, 0) == 1) {
      text.push_back(byte);
      const std::size_t end = text.find("\r\n\r\n");
      if (end == std::string::npos) continue;
      if (text.size() - end - 4 < std::stoul(text.substr(text.find("Length: ") + 8))) continue;
      client.head = text.substr(0, end);
      client.body = text.substr(end + 4);
      return handler_(client);
    }
  }

  Handler handler_;
  Connection listener_{FileHandle(::socket(AF_INET, SOCK_STREAM, 0)), {}, {}};
  std::string url_;
  std::atomic<bool> stopped_{false};
  std::thread thread_;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_HTTP_SERVER_H_
