#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/server_options.h"
#include "imapkit/connection_report.h"
#include "tests/support/command_line.h"
#include "tests/support/dovecot.h"
#include "tests/support/mail_builder.h"
#include "tests/support/scripted_imap_server.h"

namespace ambervane {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kPassword = "ge\"heim\\ ü";

/// One server with TLS and one without for all tests here.
class CheckCommand : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (DovecotServer::unavailable()) return;
    tls_ = std::make_unique<DovecotServer>(
        DovecotServer::Options{.users = {{"anna", kPassword}}, .specialUse = {{"All", "\\All"}}});
    plain_ = std::make_unique<DovecotServer>(
        DovecotServer::Options{.tls = false, .users = {{"anna", kPassword}}});
    tls_->deliver("INBOX", plainMail(1), "S");
    tls_->deliver("INBOX", plainMail(2));
    tls_->deliver("Kunden/Müller & Söhne", plainMail(3));
    for (int i = 1; i <= 3; ++i) tls_->deliver("All", plainMail(i));
  }
  static void TearDownTestSuite() {
    tls_.reset();
    plain_.reset();
  }
  void SetUp() override {
    if (const auto reason = DovecotServer::unavailable()) GTEST_SKIP() << *reason;
  }

  static std::vector<std::string> command(const std::string& host, std::uint16_t port,
                                          const std::vector<std::string>& more = {},
                                          const std::string& password = kPassword) {
    std::vector<std::string> words = {"check",  "--host", host,
                                      "--user", "anna",   "--password",
                                      password, "--port", std::to_string(port)};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  static inline std::unique_ptr<DovecotServer> tls_, plain_;
};

TEST_F(CheckCommand, saysWhatItFound) {
  const TrustedCertificate trusted(tls_->certificate());
  const std::string port = std::to_string(tls_->tlsPort());
  const CommandResult encrypted = runCommand(command("localhost", tls_->tlsPort()));
  EXPECT_EQ(encrypted.status, 0);
  EXPECT_THAT(encrypted.out,
              StartsWith("OK  signed in to localhost:" + port +
                         " (read-only) — EXAMINE and BODY.PEEK only, nothing is marked as read\n"
                         "Encryption : TLS established\n"
                         "Messages   : about 3 messages, 2 unread\n"
                         "Capabilities: "));
  EXPECT_THAT(encrypted.out, HasSubstr(" IMAP4REV1 "));
  EXPECT_THAT(encrypted.out, EndsWith("\nAccess: readable\n"));
  EXPECT_THAT(encrypted.err, IsEmpty());

  const CommandResult plain = runCommand(command("127.0.0.1", plain_->plainPort(), {"--no-tls"}));
  EXPECT_EQ(plain.status, 0);
  EXPECT_THAT(plain.out, HasSubstr("\nEncryption : no TLS requested\n"
                                   "Messages   : about 0 messages, 0 unread\n"));
  EXPECT_THAT(plain.out,
              EndsWith("\nThis connection is not encrypted. Use port 993 with TLS unless "
                       "the server is on this machine.\nAccess: readable\n"));
}

TEST_F(CheckCommand, leavesTheMailboxesAsTheyAre) {
  const std::string message = tls_->deliver("Untouched", plainMail(9));
  const TrustedCertificate trusted(tls_->certificate());
  EXPECT_EQ(runCommand(command("localhost", tls_->tlsPort())).status, 0);
  EXPECT_EQ(tls_->flags("Untouched", message), "");
  tls_->removeFolder("Untouched");
}

TEST_F(CheckCommand, saysHowFarItGot) {
  const std::string got = "Got as far as : ";
  const struct {
    const char* name;
    std::vector<std::string> words;
    bool trusts;
    std::vector<std::string> lines;  ///< each stands in the output as a whole
  } kCases[] = {
      {"wrongPassword",
       command("localhost", tls_->tlsPort(), {}, "falsch"),
       true,
       {"FAIL Wrong username or password for anna at localhost.",
        got + "reached the server · TLS established · not signed in",
        "  → Check for a leading or trailing space in the password."}},
      {"untrusted",
       command("localhost", tls_->tlsPort()),
       false,
       {"FAIL The server's certificate was not accepted (status 18).",
        got + "reached the server · TLS not established · not signed in",
        "Detail       : The certificate may be self-signed, expired, or issued for a different "
        "host name.",
        "  → If you know the server and accept the risk, retry with certificate validation "
        "switched "
        "off."}},
      {"wrongName",
       command("127.0.0.1", tls_->tlsPort()),
       true,
       {"FAIL The certificate's host name does not match 127.0.0.1 (status 64).",
        "  → Use the host name the certificate was issued for."}},
      {"tlsToAPlainPort",
       command("localhost", tls_->plainPort()),
       true,
       {got + "reached the server · TLS not established · not signed in",
        "  → Port " + std::to_string(tls_->plainPort()) +
            " may be plaintext IMAP. Port 143 usually is; 993 is the TLS port."}},
      {"startTLSOnly",
       command("localhost", tls_->plainPort(), {"--no-tls"}),
       false,
       {"FAIL localhost offers STARTTLS on port " + std::to_string(tls_->plainPort()) +
            " but this client only does implicit TLS. Connect on port 993 with TLS enabled "
            "instead.",
        got + "reached the server · no TLS requested · not signed in"}},
      {"closedPort",
       command("127.0.0.1", plain_->tlsPort()),
       false,
       {"FAIL Nothing is listening on port " + std::to_string(plain_->tlsPort()) + " at 127.0.0.1.",
        got + "could not reach the server · TLS not established · not signed in",
        "Raw error    : Connection refused"}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    std::optional<TrustedCertificate> trusted;
    if (c.trusts) trusted.emplace(tls_->certificate());
    const CommandResult result = runCommand(c.words);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, IsEmpty());
    for (const std::string& line : c.lines)
      EXPECT_THAT("\n" + result.out, HasSubstr("\n" + line + "\n"));
    for (const char* secret : {kPassword, "falsch"}) {
      EXPECT_THAT(result.out, Not(HasSubstr(secret)));
    }
  }
}

TEST_F(CheckCommand, takesACertificateItIsToldToTake) {
  const DovecotServer expired({.validity = Validity::expired, .users = {{"anna", kPassword}}});
  const TrustedCertificate trusted(expired.certificate());
  const CommandResult refused = runCommand(command("localhost", expired.tlsPort()));
  EXPECT_THAT(refused.out,
              StartsWith("FAIL The server's certificate was not accepted (status 10).\n"));
  const CommandResult taken =
      runCommand(command("127.0.0.1", expired.tlsPort(), {"--allow-untrusted-certificate"}));
  EXPECT_EQ(taken.status, 0) << taken.out;
  EXPECT_THAT(taken.out, HasSubstr("\nCertificate validation is switched off for this account.\n"));
}

TEST_F(CheckCommand, aServerThatWaitsForTLS) {
  IMAPCredentials credentials;
  credentials.username = "anna";
  credentials.method = IMAPCredentials::Login{Secret(std::string(kPassword))};
  const IMAPConnectionReport report = probe(
      {.host = "127.0.0.1", .port = tls_->tlsPort(), .useTLS = false, .timeout = 0.3}, credentials);
  EXPECT_TRUE(report.reachedServer);
  EXPECT_FALSE(report.succeeded || report.completedTLS || report.authenticated);
  ASSERT_TRUE(report.failure && report.diagnostic);
  EXPECT_EQ(*report.failure, "127.0.0.1 accepted the connection but sent nothing for 0 seconds");
  EXPECT_EQ(report.diagnostic->summaryMessage.text(), *report.failure);
}

TEST(CheckScripted, aServerThatOpensNoMailbox) {
  const ScriptedIMAPServer server({
      .greeting = "* OK [CAPABILITY IMAP4rev2] ready\r\n",
      .replies = {{"CAPABILITY", "* CAPABILITY IMAP4rev2\r\n$T OK\r\n"},
                  {"LIST", "* LIST () \"/\" INBOX\r\n$T OK\r\n"},
                  {"STATUS", "* STATUS INBOX (MESSAGES 7 UNSEEN 2)\r\n$T OK\r\n"},
                  {"EXAMINE", "$T NO [NOPERM] not \033[31mtoday\r\n"}},
  });
  const CommandResult result =
      runCommand({"check", "--host", "127.0.0.1", "--port", std::to_string(server.address().port),
                  "--no-tls", "--user", "anna", "--password", kPassword});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("\nMessages   : about 0 messages, 0 unread\n"));
  EXPECT_THAT(result.out, HasSubstr("\nThe server did not advertise IMAP4rev1; some features may "
                                    "not work.\nAccess: refused — EXAMINE failed: "));
  EXPECT_THAT(result.out, HasSubstr("[NOPERM] not \\x1b[31mtoday\n"));
}

TEST(ServerOptions, wrongCalls) {
  const struct {
    const char* name;
    std::vector<std::string> words;
    const char* text;
  } kCases[] = {
      {"nothing", {"check"}, "--host is required"},
      {"emptyHost", {"check", "--host=", "--user", "u"}, "--host is required"},
      {"hostWithoutAValue", {"check", "--host", "--user", "u"}, "--host is required"},
      {"noUser", {"check", "--host", "h"}, "--user is required"},
      {"portWord",
       {"check", "--host", "h", "--user", "u", "--port", "imap"},
       "--port takes a number from 1 to 65535"},
      {"portZero",
       {"check", "--host", "h", "--user", "u", "--port", "0"},
       "--port takes a number from 1 to 65535"},
      {"portTooLarge",
       {"check", "--host", "h", "--user", "u", "--port", "65536"},
       "--port takes a number from 1 to 65535"},
      {"portWithoutAValue",
       {"check", "--host", "h", "--user", "u", "--port"},
       "--port takes a number from 1 to 65535"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const CommandResult result = runCommand(c.words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, std::string("error: ") + c.text + "\n");
  }
}

TEST(ServerOptions, areReadWithTheirPrefix) {
  const Arguments arguments =
      Arguments::parse({"copy", "--from-host", "a", "--from-user", "anna", "--from-password", "pa",
                        "--from-no-tls", "--to-host", "b", "--to-user", "bert", "--to-oauth-token",
                        "tb", "--to-port=1993", "--to-allow-untrusted-certificate"});
  const ServerLogin from = serverFrom(arguments, "from-");
  EXPECT_EQ(from.server, (IMAPServer{.host = "a", .port = 143, .useTLS = false, .timeout = 60}));
  EXPECT_EQ(from.credentials.username, "anna");
  EXPECT_EQ(std::get<IMAPCredentials::Login>(from.credentials.method).password.view(), "pa");
  const ServerLogin to = serverFrom(arguments, "to-");
  EXPECT_EQ(
      to.server,
      (IMAPServer{.host = "b", .port = 1993, .allowUntrustedCertificate = true, .timeout = 60}));
  EXPECT_EQ(std::get<IMAPCredentials::XOAuth2>(to.credentials.method).accessToken.view(), "tb");
}

TEST(ServerOptions, secretsAreErasedWhereTheyStood) {
  std::vector<std::string> words = {
      "copy", "--from-password", "geheim", "--to-password=geheim", "--user",
      "anna", "--oauth-token",   "geheim", "--password",           "--host",
      "h"};
  Arguments arguments = Arguments::parse(words);
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  eraseSecrets(pointers);
  std::vector<std::string> left(pointers.begin(), pointers.end());
  EXPECT_THAT(left, testing::ElementsAre("copy", "--from-password", "", "--to-password=", "--user",
                                         "anna", "--oauth-token", "", "--password", "--host", "h"));
  eraseSecrets(arguments);
  for (const auto& [name, value] : arguments.options) EXPECT_THAT(value, Not(HasSubstr("geheim")));
  EXPECT_EQ(arguments.options["user"], "anna");
}

}  // namespace
}  // namespace ambervane
