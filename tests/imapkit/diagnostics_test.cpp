#include "imapkit/diagnostics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <openssl/x509_vfy.h>

#include <cerrno>

#include "imapkit/imap_server.h"
#include "imapkit/provider_profile.h"

namespace ambervane {
namespace {

using testing::Contains;
using testing::EndsWith;
using testing::Not;
using testing::StartsWith;

constexpr const char* kDns =
    " Check the spelling of the server name. If this machine is offline or behind a captive "
    "portal, "
    "DNS will fail for everything.";
constexpr const char* kNoRoute =
    "mail.example.ch cannot be reached from this network. There is no route to that host. Check "
    "the "
    "network connection or the VPN. If the server is on a company network, it may only be "
    "reachable "
    "from inside it.";

TEST(Diagnostics, describeConnections) {
  const IMAPServer tls{.host = "mail.example.ch"};
  const IMAPServer website{.host = "www.example.ch", .port = 9930};
  const IMAPServer plain{.host = "mail.example.ch", .port = 143, .useTLS = false};
  const IMAPServer plainOn993{.host = "mail.example.ch", .useTLS = false};
  const IMAPServer tlsOn143{.host = "mail.example.ch", .port = 143};
  const struct {
    const char* name;
    NetworkError error;
    IMAPServer server;
    std::string combined;
  } kCases[] = {
      {"refused", NetworkError::system(ECONNREFUSED), tls,
       "Nothing is listening on port 993 at mail.example.ch. The host answered, but it refused the "
       "connection on that port. Check the port number — IMAP is 993 with TLS, or 143 without. A "
       "mail server name is not always the website's — check it with your provider."},
      {"refusedByAWebsite", NetworkError::system(ECONNREFUSED), website,
       "Nothing is listening on port 9930 at www.example.ch. The host answered, but it refused the "
       "connection on that port. Check the port number — IMAP is 993 with TLS, or 143 without. "
       "Mail "
       "servers usually sit on their own name — try imap.example.ch or mail.example.ch."},
      {"timedOut", NetworkError::system(ETIMEDOUT), tls,
       "No answer from mail.example.ch. The connection was opened but nothing came back before the "
       "timeout — typically a firewall dropping the packets rather than refusing them. Check "
       "whether a firewall or VPN is filtering this port. Try the same host and port from another "
       "network."},
      {"resetWithTLS", NetworkError::system(ECONNRESET), tls,
       "mail.example.ch closed the connection immediately. Something answered but dropped the "
       "connection before the IMAP greeting. The port may be plaintext IMAP rather than TLS — try "
       "port 143 with TLS off."},
      {"resetWithoutTLS", NetworkError::system(ECONNRESET), plain,
       "mail.example.ch closed the connection immediately. Something answered but dropped the "
       "connection before the IMAP greeting. The port may expect TLS — try port 993 with TLS on."},
      {"networkDown", NetworkError::system(ENETDOWN), tls, kNoRoute},
      {"noNetwork", NetworkError::system(ENETUNREACH), tls, kNoRoute},
      {"noHost", NetworkError::system(EHOSTUNREACH), tls, kNoRoute},
      {"noName", NetworkError::lookup(EAI_NONAME, 0), tls,
       std::string("No such host: mail.example.ch. DNS has no address for that name.") + kDns},
      {"noAddress", NetworkError::lookup(EAI_NODATA, 0), tls,
       std::string("No such host: mail.example.ch. DNS has no address for that name.") + kDns},
      {"noDns", NetworkError::lookup(EAI_AGAIN, 0), tls,
       std::string("Could not look up mail.example.ch. The DNS lookup failed (code -3).") + kDns},
      {"lookupOfTheSystem", NetworkError::lookup(EAI_SYSTEM, ENETUNREACH), tls, kNoRoute},
      {"other", NetworkError::system(EMFILE), tls,
       "Could not connect to mail.example.ch. Too many open files"},
      {"otherPlainOn993", NetworkError::system(EMFILE), plainOn993,
       "Could not connect to mail.example.ch. Too many open files Port 993 expects TLS, but TLS is "
       "switched off here. Most providers only accept TLS on port 993."},
      {"otherTLSElsewhere", NetworkError::system(EMFILE), tlsOn143,
       "Could not connect to mail.example.ch. Too many open files TLS is on but the port is 143; "
       "the standard TLS port for IMAP is 993. Most providers only accept TLS on port 993."},
      {"otherPlain", NetworkError::system(EMFILE), plain,
       "Could not connect to mail.example.ch. Too many open files"},
      {"wrongName", NetworkError::certificate(X509_V_ERR_HOSTNAME_MISMATCH), tls,
       "The certificate's host name does not match mail.example.ch (status 62). Use the host name "
       "the certificate was issued for."},
      {"wrongAddress", NetworkError::certificate(X509_V_ERR_IP_ADDRESS_MISMATCH), tls,
       "The certificate's host name does not match mail.example.ch (status 64). Use the host name "
       "the certificate was issued for."},
      {"selfSigned", NetworkError::certificate(X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT), tls,
       "The server's certificate was not accepted (status 18). The certificate may be self-signed, "
       "expired, or issued for a different host name. If you know the server and accept the risk, "
       "retry with certificate validation switched off."},
      {"handshake", NetworkError::handshake(0x0A00010B), tlsOn143,
       "TLS handshake failed (status 267). The server did not complete a TLS handshake (status "
       "267). Port 143 may be plaintext IMAP. Port 143 usually is; 993 is the TLS port."},
      {"noMemory", NetworkError::certificate(X509_V_ERR_OUT_OF_MEM), tls,
       "TLS could not be established with mail.example.ch. If the server only offers STARTTLS on "
       "port 143, use port 993 instead — this client does not upgrade a live connection."},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const IMAPDiagnostic diagnostic = IMAPDiagnostics::describe(c.error, c.server);
    EXPECT_EQ(diagnostic.combined(), c.combined);
    EXPECT_EQ(diagnostic.underlying, c.error.text);
    EXPECT_FALSE(c.error.text.empty());
  }
  EXPECT_THAT(IMAPDiagnostics::connectTimedOut({.host = "h", .timeout = 2.5}).combined(),
              StartsWith("No answer from h within 2 seconds. The connection never became ready. A "
                         "firewall that drops"));
}

TEST(Diagnostics, describeSignIns) {
  constexpr auto kPersonal = IMAPAccountKind::personalMicrosoft;
  constexpr auto kOrganisation = IMAPAccountKind::organisation;
  constexpr auto kUnknown = IMAPAccountKind::unknown;
  const IMAPServer here{.host = "mail.example.ch"};
  const IMAPServer outlook{.host = "Outlook.Office365.com"};
  const struct {
    const char* name;
    std::string said;
    IMAPServer server;
    std::string user;
    IMAPAccountKind kind;
    std::string summary;
    std::size_t hints;
    std::string oneHint;
  } kCases[] = {
      {"wrong", "M0001 NO [AUTHENTICATIONFAILED] No.", here, "anna", kUnknown,
       "Wrong username or password for anna at mail.example.ch.", 2,
       "Some servers want the full address as the username, not just the local part."},
      {"wrongInOtherWords",
       "NO Invalid credentials (Failure)",
       {.host = "imap.gmail.com"},
       "anna@gmail.com",
       kUnknown,
       "Wrong username or password for anna@gmail.com at imap.gmail.com.",
       3,
       "Gmail requires an app password (with 2-step verification on) or OAuth — your normal "
       "password will not work."},
      {"loginFailed", "NO LOGIN failed.", outlook, "a@b", kUnknown,
       "Wrong username or password for a@b at Outlook.Office365.com.", 3,
       "Microsoft accounts usually need an app password, and many tenants disable basic "
       "authentication entirely."},
      {"appPassword",
       "NO [ALERT] Application-specific password required",
       {.host = "imap.mail.me.com"},
       "a",
       kUnknown,
       "This provider wants an app-specific password rather than your account password.",
       3,
       "iCloud requires an app-specific password generated at appleid.apple.com."},
      {"disabled",
       "NO LOGINDISABLED",
       {.host = "h", .port = 143, .useTLS = false},
       "a@b",
       kUnknown,
       "h does not accept plain password sign-in on this connection.",
       3,
       "The server disables password login on unencrypted connections. Use port 993 with TLS."},
      {"disabledUnderTLS", "NO LoginDisabled", here, "a@b", kUnknown,
       "mail.example.ch does not accept plain password sign-in on this connection.", 2,
       "Some servers want only the part before the @ as the username."},
      {"inABrowser",
       "NO [WEBALERT https://x] Web login required.",
       {.host = "imap.mail.yahoo.com"},
       "a@b",
       kUnknown,
       "This provider wants you to sign in with a web browser first.",
       3,
       "Yahoo requires an app password generated in account security settings."},
      {"unknownWords", "NO [UNAVAILABLE] Later.", here, "anna", kUnknown,
       "mail.example.ch rejected the sign-in for anna.", 2,
       "Check for a leading or trailing space in the password."},
      {"personal", "BAD User is authenticated but not connected.", outlook, "a@b", kPersonal,
       "a@b signed in at Outlook.Office365.com, but no mailbox opened.", 2,
       "Signing in under an alias gives this too — use the account's primary address."},
      {"organisation", "BAD User is authenticated but not connected.", outlook, "a@b",
       kOrganisation, "a@b signed in at Outlook.Office365.com, but no mailbox opened.", 4,
       "IMAP can be switched off for a single mailbox; an administrator turns it on with "
       "Set-CASMailbox -ImapEnabled $true."},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const IMAPDiagnostic found =
        IMAPDiagnostics::describeAuthentication(c.said, c.server, c.user, std::nullopt, c.kind);
    EXPECT_EQ(found.summaryMessage.text(), c.summary);
    EXPECT_EQ(found.underlying, c.said);
    std::vector<std::string> hints;
    for (const LocalizedMessage& hint : found.hintMessages) hints.push_back(hint.text());
    EXPECT_EQ(hints.size(), c.hints);
    EXPECT_THAT(hints, Contains(c.oneHint));
    const bool noMailbox = c.kind != kUnknown;
    EXPECT_EQ(found.helpArticle,
              noMailbox ? std::optional<std::string>("outlook-no-mailbox") : std::nullopt);
    EXPECT_EQ(hints.back() == "Check for a leading or trailing space in the password.", !noMailbox);
    ASSERT_TRUE(found.detailMessage);
    EXPECT_EQ(found.detailMessage->text().find(c.said) == std::string::npos, noMailbox);
  }
}

TEST(Diagnostics, anEarlierReplyIsKept) {
  const struct {
    std::string line;
    std::optional<std::string> challenge;
  } kLines[] = {
      {"+ eyJzdGF0dXMiOiI0MDAifQ==", R"({"status":"400"})"},
      {"+ ", std::nullopt},
      {"eyJzdGF0dXMiOiI0MDAifQ==", std::nullopt},
      {"+ aGVsbG8=", std::nullopt},
      {"+ {\"status\"}", std::nullopt},
  };
  for (const auto& line : kLines) {
    EXPECT_EQ(IMAPDiagnostics::decodeSASLChallenge(line.line), line.challenge) << line.line;
  }
  const IMAPDiagnostic found =
      IMAPDiagnostics::describeAuthentication("M1 NO \033[2J", {.host = "h"}, "a@icloud.com",
                                              kLines[0].challenge, IMAPAccountKind::unknown);
  EXPECT_EQ(found.detailMessage->text(),
            "The server replied: M1 NO \033[2J\nAnd before that: {\"status\":\"400\"}");
  EXPECT_THAT(found.combined(), Not(testing::ContainsRegex("[\n\033]")));
  EXPECT_EQ(found.settingsURL, "https://account.apple.com/account/manage");
}

TEST(ProviderProfiles, matchTheDomainOfAnAddress) {
  const struct {
    const char* address;
    const char* name;  ///< empty: none
  } kCases[] = {
      {"anna@icloud.com", "iCloud"},
      {"Anna@ME.com", "iCloud"},
      {"a@googlemail.com", "Gmail"},
      {"a@x@yahoo.de", "Yahoo"},
      {"a@bluewin.ch", "Bluewin"},
      {"a@ik.me", "Infomaniak"},
      {"a@proton.me", "Proton Mail"},
      {"a@mail.gmail.com", ""},
      {"gmail.com", ""},
      {"a@", ""},
      {"", ""},
  };
  for (const auto& c : kCases) {
    const MailProviderProfile* found = MailProviderProfile::matching(c.address);
    EXPECT_EQ(found == nullptr ? "" : found->name, c.name) << c.address;
  }
  for (const MailProviderProfile& profile : MailProviderProfile::known()) {
    EXPECT_EQ(profile.port.has_value(), profile.access != MailProviderProfile::Access::localBridge);
    EXPECT_EQ(profile.usernameIsLocalPart, profile.name == "iCloud");
  }
}

}  // namespace
}  // namespace ambervane
