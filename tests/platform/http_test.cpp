#include "platform/http.h"

#include <gtest/gtest.h>

#include <chrono>

#include "tests/support/http_server.h"

namespace ambervane {
namespace {

using Connection = HttpServer::Connection;

/// Status and body, or why there are none.
std::string outcome(const std::string& url) {
  try {
    const HttpReply reply = httpPost({.url = url,
                                      .headers = {"Content-Type: text/x-question"},
                                      .body = "question",
                                      .timeoutSeconds = 0.4,
                                      .maxReplyBytes = 1000});
    return std::to_string(reply.status) + " " + reply.body;
  } catch (const HttpError& error) {
    return error.what();
  }
}

TEST(HttpPost, servers) {
  static const Bytes kFiller = "X-Filler: " + Bytes(500, 'x') + "\r\n";
  static const struct {
    const char* name;
    HttpServer::Handler handler;
    const char* outcome;
  } kCases[] = {
      {"answers",
       [](const Connection& c) {
         EXPECT_TRUE(c.head.starts_with("POST /tsr HTTP/1.1\r\n")) << c.head;
         EXPECT_NE(c.head.find("\r\nContent-Type: text/x-question\r\n"), std::string::npos);
         c.reply("200 OK", c.body);
       },
       "200 question"},
      {"error", [](const Connection& c) { c.reply("503 Busy", "later"); }, "503 later"},
      {"moved",
       [](const Connection& c) {
         const bool there = c.head.starts_with("POST /new ");
         c.reply(there ? "200 OK" : "301 Moved", c.body, there ? "" : "Location: /new\r\n");
       },
       "200 question"},
      {"redirectLoop", [](const Connection& c) { c.reply("302 Found", "", "Location: /tsr\r\n"); },
       "Maximum (3) redirects followed"},
      {"redirectToFile",
       [](const Connection& c) { c.reply("302 Found", "", "Location: file:///etc/passwd\r\n"); },
       "Protocol \"file\" not supported or disabled in libcurl"},
      {"silence", [](const Connection& c) { c.wait(5000); }, "No reply came in time"},
      {"trickle",
       [](const Connection& c) {
         for (c.send("HTTP/1.1 200 OK\r\n\r\n"); c.send(".");) c.wait(50);
       },
       "No reply came in time"},
      {"endlessBody",
       [](const Connection& c) {
         for (c.send("HTTP/1.1 200 OK\r\n\r\n"); c.send(kFiller);) continue;
       },
       "The reply is larger than 1000 bytes"},
      {"endlessHeaders",
       [](const Connection& c) {
         for (c.send("HTTP/1.1 200 OK\r\n"); c.send(kFiller);) continue;
       },
       "The reply is larger than 1000 bytes"},
      {"hangsUp", [](const Connection&) {}, "Empty reply from server"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const HttpServer server(c.handler);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(outcome(server.url()), c.outcome);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
  }
}

TEST(HttpPost, placesThatCannotBeAsked) {
  EXPECT_EQ(outcome("nohost"), "Bad scheme");
  EXPECT_NE(outcome("file:///etc/hostname").find("not supported"), std::string::npos);
}

}  // namespace
}  // namespace ambervane
