#include "platform/http.h"

#include <gtest/gtest.h>

#include <chrono>

#include "tests/support/http_server.h"

namespace ambervane {
namespace {

using Connection = HttpServer::Connection;

/// The body, or why there is none.
std::string outcome(const std::string& url, std::size_t maxReplyBytes = 1000) {
  try {
    const HttpReply reply = httpPost({.url = url,
                                      .headers = {"Content-Type: text/x-question"},
                                      .body = Bytes("a\0b", 3),
                                      .timeoutSeconds = 0.4,
                                      .maxReplyBytes = maxReplyBytes});
    return std::to_string(reply.status) + " " + reply.body;
  } catch (const HttpError& error) {
    return error.what();
  }
}

TEST(HttpPost, servers) {
  static const struct {
    const char* name;
    HttpServer::Handler handler;
    std::string outcome;
  } kCases[] = {
      {"answers",
       [](const Connection& c) {
         EXPECT_TRUE(c.head.starts_with("POST /tsr HTTP/1.1\r\n"));
         EXPECT_NE(c.head.find("\r\nContent-Type: text/x-question"), std::string::npos);
         c.reply("200 OK", c.body);
       },
       "200 " + Bytes("a\0b", 3)},
      {"error", [](const Connection& c) { c.reply("503 Busy", "later"); }, "503 later"},
      {"moved",
       [](const Connection& c) {
         const bool first = c.head.starts_with("POST /tsr ");
         EXPECT_TRUE(c.head.starts_with("POST"));
         c.reply(first ? "301 Moved" : "200 OK", c.body, first ? "Location: /new\r\n" : "");
       },
       "200 " + Bytes("a\0b", 3)},
      {"redirectLoop", [](const Connection& c) { c.reply("302 Found", "", "Location: /tsr\r\n"); },
       "Maximum (3) redirects followed"},
      {"redirectToFile",
       [](const Connection& c) { c.reply("302 Found", "", "Location: file:///etc/passwd\r\n"); },
       "Protocol \"file\" not supported or disabled in libcurl"},
      {"silence", [](const Connection& c) { c.wait(); }, "No reply came in time"},
      {"trickle",
       [](const Connection& c) {
         c.send("HTTP/1.1 200 OK\r\n\r\n");
         for (int i = 0; i < 50 && c.send("."); ++i) {
           std::this_thread::sleep_for(std::chrono::milliseconds(50));
         }
       },
       "No reply came in time"},
      {"endlessBody",
       [](const Connection& c) {
         c.send("HTTP/1.1 200 OK\r\n\r\n");
         while (c.send(Bytes(5000, 'x'))) {
         }
       },
       "The reply is larger than 1000 bytes"},
      {"endlessHeaders",
       [](const Connection& c) {
         c.send("HTTP/1.1 200 OK\r\n");
         while (c.send("X-Filler: " + Bytes(500, 'x') + "\r\n")) {
         }
       },
       "The reply is larger than 1000 bytes"},
      {"hangsUp", [](const Connection&) {}, "Empty reply from server"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const HttpServer server(c.handler);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(outcome(server.url()), c.outcome);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  }
}

TEST(HttpPost, placesThatCannotBeAsked) {
  for (const char* url : {"", "nohost", "http://", "file:///etc/passwd", "http://127.0.0.1:1/",
                          "https://127.0.0.1:1/"}) {
    SCOPED_TRACE(url);
    const std::string words = outcome(url);
    EXPECT_FALSE(words.empty() || words.starts_with("200")) << words;
  }
}

TEST(UrlHost, hosts) {
  static constexpr std::pair<const char*, const char*> kCases[] = {
      {"http://user:pw@tsa.example:80/x?y#z", "tsa.example"},
      {"https://[::1]:3/", "[::1]"},
      {"tsa.example/x", ""},
  };
  for (const auto& [url, host] : kCases) EXPECT_EQ(urlHost(url), host) << url;
}

}  // namespace
}  // namespace ambervane
