#include "imapkit/imap_transport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>
#include <set>
#include <thread>

#include "imapkit/bounded_wait.h"
#include "imapkit/connector.h"
#include "imapkit/imap_error.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/scripted_imap_server.h"

namespace ambervane {
namespace {

using std::chrono::steady_clock;
using testing::HasSubstr;

/// A port on 127.0.0.1 where nothing listens.
std::uint16_t closedPort() { return ScriptedIMAPServer(IMAPScript{}).address().port; }

TEST(IMAPTransport, checksTheCertificate) {
  const struct {
    const char* name;
    const char* certifiedName;
    Validity validity;
    bool trusts, allowsAny;
    const char *host, *failure;
  } kCases[] = {
      {"good", "localhost", Validity::current, true, false, "localhost", ""},
      {"dotAtTheEnd", "localhost", Validity::current, true, false, "localhost.", ""},
      {"unknownIssuer", "localhost", Validity::current, false, false, "localhost",
       "The server's certificate was not accepted"},
      {"expired", "localhost", Validity::expired, true, false, "localhost",
       "The server's certificate was not accepted"},
      {"otherName", "mail.example.ch", Validity::current, true, false, "localhost",
       "The certificate's host name does not match"},
      {"addressIsNoName", "localhost", Validity::current, true, false, "127.0.0.1",
       "The certificate's host name does not match"},
      {"anyAllowed", "mail.example.ch", Validity::expired, false, true, "127.0.0.1", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const ScratchFolder folder;
    const TestCertificate certificate =
        writeTestCertificate(folder.path(), c.certifiedName, c.validity);
    const TrustedCertificate trusted(c.trusts ? certificate.certificate
                                              : std::filesystem::path("/dev/null"));
    ScriptedIMAPServer server({.greeting = "* OK hello\r\n", .pieceBytes = 1}, certificate);
    IMAPServer address = server.address();
    address.host = c.host;
    address.allowUntrustedCertificate = c.allowsAny;
    IMAPTransport transport(address);
    const std::string failed = failure([&] {
      transport.connect();
      EXPECT_EQ(transport.readLine(), "* OK hello");
      transport.sendLine("M0001 NOOP");
      EXPECT_EQ(transport.readLine(), "M0001 OK done");
    });
    EXPECT_THAT(failed, HasSubstr(c.failure));
    EXPECT_EQ(failed.empty(), std::string(c.failure).empty()) << failed;
    EXPECT_TRUE(transport.reachedServer());
    EXPECT_EQ(transport.completedTLS(), failed.empty());
    EXPECT_EQ(transport.bytesReceived(), failed.empty() ? 27 : 0);
  }
}

TEST(IMAPTransport, saysWhyItCannotConnect) {
  ScriptedIMAPServer silent({.greeting = "$H"});
  ScriptedIMAPServer plain(IMAPScript{});
  ScriptedIMAPServer closing({.greeting = "$C"});
  const auto address = [](const char* host, std::uint16_t port, bool useTLS) {
    return IMAPServer{.host = host, .port = port, .useTLS = useTLS, .timeout = 0.5};
  };
  const struct {
    const char* name;
    IMAPServer server;
    std::string failure;
  } kCases[] = {
      {"refused", address("127.0.0.1", closedPort(), false), "Nothing is listening on port"},
      {"refusedByAll", address("localhost", closedPort(), true), "Nothing is listening on port"},
      {"noSuchHost", address("nowhere.invalid", 993, true), "nowhere.invalid"},
      {"silentAboutTLS", address("127.0.0.1", silent.address().port, true),
       "No answer from 127.0.0.1 within 0 seconds."},
      {"noTLS", address("127.0.0.1", plain.address().port, true), "TLS handshake failed"},
      {"closes", address("127.0.0.1", closing.address().port, true), "TLS handshake failed"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto start = steady_clock::now();
    IMAPTransport transport(c.server);
    EXPECT_THAT(failure([&] { transport.connect(); }), HasSubstr(c.failure));
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(failure([&] { transport.sendLine("x"); }), "Not connected to the server");
  }
}

TEST(IMAPTransport, triesTheNextAddress) {
  ScriptedIMAPServer server(IMAPScript{});
  IMAPServer target = server.address();
  const Deadline deadline(5);
  const auto at = [&](const char* host, std::uint16_t port) {
    IMAPServer other = target;
    other.port = port;
    return lookUp(other, host, deadline, nullptr).at(0);
  };
  // Refused at once, unreachable, and, being for documentation only, silent or unreachable.
  const std::vector<SocketAddress> addresses = {at("127.0.0.1", closedPort()), at("2001:db8::1", 9),
                                                at("192.0.2.1", 9), at("127.0.0.1", target.port)};
  const auto start = steady_clock::now();
  EXPECT_TRUE(connectToAny(addresses, target, deadline, nullptr));
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(2));
  // "localhost" may be ::1 first, where the server does not listen.
  target.host = "localhost";
  IMAPTransport transport(target);
  EXPECT_EQ(failure([&] { transport.connect(); }), "");
}

TEST(IMAPTransport, boundsEachWait) {
  const std::string ended = "Connection failed: server closed the connection";
  const struct {
    const char *name, *greeting;
    std::string failure;
  } kCases[] = {
      {"silence", "* OK$H", "127.0.0.1 accepted the connection but sent nothing for 1 seconds"},
      {"end", "* OK$C", ended},
      {"reset", "* OK$R", "Connection failed: Connection reset by peer"},
      {"resetAtOnce", "$R", "127.0.0.1 closed the connection immediately."},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    ScriptedIMAPServer server({.greeting = c.greeting});
    IMAPTransport transport(server.address(1.2));
    transport.connect();
    EXPECT_THAT(failure([&] { transport.readLine(); }), testing::StartsWith(c.failure));
    transport.close();
    transport.close();
    EXPECT_EQ(failure([&] { transport.readBytes(5); }), "Not connected to the server");
  }
}

TEST(IMAPTransport, isCancelled) {
  ScriptedIMAPServer server({.greeting = "$H"});
  std::atomic<bool> cancelled = false;
  IMAPTransport transport(server.address(60), [&] { return cancelled.load(); });
  transport.connect();
  std::thread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    cancelled = true;
  });
  const auto start = steady_clock::now();
  EXPECT_EQ(failure([&] { transport.readLine(); }), "Cancelled");
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(3));
  later.join();
}

TEST(IMAPTransport, tracesLinesWithoutSecrets) {
  const std::string longLine(2000, 'x');
  ScriptedIMAPServer server({.greeting = "* OK {6}\r\nhidden\r\n",
                             .replies = {{"LOGIN", longLine + "\r\n$T NO pw\r\n"}}});
  std::vector<std::pair<std::string, bool>> trace;
  IMAPTransport transport(server.address());
  transport.setTraceHandler(
      [&](std::string_view line, bool sent) { trace.emplace_back(line, sent); });
  transport.connect();
  transport.readLine();
  EXPECT_EQ(transport.readBytes(8), "hidden\r\n");
  transport.pushSecret("pw");
  transport.sendLine("M0001 LOGIN a pw");
  transport.readLine();
  transport.readLine();
  transport.popSecret();
  const std::vector<std::pair<std::string, bool>> expected = {
      {"* OK {6}", false},
      {"M0001 LOGIN a ••••••", true},
      {longLine.substr(0, 512), false},
      {"M0001 NO ••••••", false},
  };
  EXPECT_EQ(trace, expected);
  EXPECT_EQ(server.received().back(), "M0001 LOGIN a pw");
}

TEST(Deadline, takesAnyNumber) {
  for (const double none : {0.0, -1.0, -std::numeric_limits<double>::infinity()}) {
    EXPECT_TRUE(Deadline(none).hasPassed());
  }
  for (const double far : {1e300, std::numeric_limits<double>::infinity(), std::nan("")}) {
    EXPECT_FALSE(Deadline(far).hasPassed());
  }
}

TEST(Connector, makesNamesASCII) {
  EXPECT_EQ(asciiHostName("imap.example.ch."), "imap.example.ch");
  EXPECT_EQ(asciiHostName("imap.müller.example"), "imap.xn--mller-kva.example");
  EXPECT_EQ(asciiHostName("::1"), "::1");
}

}  // namespace
}  // namespace ambervane
