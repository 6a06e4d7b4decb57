#include "imapkit/imap_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/scripted_imap_server.h"

namespace ambervane {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using namespace std::literals;

using Strings = std::vector<std::string>;
using Replies = std::vector<std::pair<std::string, std::string>>;

/// A script whose greeting names capabilities.
IMAPScript script(const std::string& capabilities, Replies replies = {}) {
  return {.greeting = "* OK [CAPABILITY IMAP4rev1 " + capabilities + "] ready\r\n",
          .replies = std::move(replies)};
}

IMAPCredentials password(std::string text, std::string username = "anna@example.ch") {
  return {.username = std::move(username),
          .method = IMAPCredentials::Login{Secret(std::move(text))}};
}

TEST(IMAPClient, refusesServersAtTheGreeting) {
  const std::string startTLS =
      "127.0.0.1 offers STARTTLS on port 0 but this client only does implicit TLS. Connect on port "
      "993 with TLS enabled instead.";
  const struct {
    const char *name, *greeting;
    std::string failure;
    std::size_t lines;
  } kCases[] = {
      {"bye", "* BYE Too many connections\r\n", "Connection failed: Too many connections", 0},
      {"bareBye", "* bye\r\n", "Connection failed: ", 0},
      {"startTLS", "* OK [CAPABILITY IMAP4rev1 starttls] ready\r\n", startTLS, 0},
      {"startTLSWhenAsked", "* OK ready\r\n", startTLS, 1},
      {"otherProtocol", "220 mail ESMTP\r\n",
       "The server sent something unexpected: 220 mail ESMTP", 0},
      {"untaggedNonsense", "* 3 EXISTS\r\n", "The server sent something unexpected: * 3 EXISTS", 0},
      {"closes", "$C", "Connection failed: server closed the connection", 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    ScriptedIMAPServer server(
        {.greeting = c.greeting,
         .replies = {{"CAPABILITY", "* CAPABILITY IMAP4rev1 STARTTLS\r\n$T OK\r\n"}}});
    IMAPClient client(server.address(), IMAPAccessMode::readOnly);
    std::string expected = c.failure;
    if (const auto port = expected.find("port 0"); port != expected.npos) {
      expected.replace(port, 6, "port " + std::to_string(server.address().port));
    }
    EXPECT_EQ(failure([&] { client.connect(); }), expected);
    EXPECT_EQ(failure([&] { client.login(password("geheim")); }), "Not connected to the server");
    EXPECT_EQ(server.received().size(), c.lines);
  }
}

struct SignInCase {
  const char* name;
  IMAPScript script;
  IMAPCredentials credentials;
  std::string failure;  ///< a part of it
  Strings sent;         ///< the first lines
  std::optional<std::string> accepted = std::nullopt;
};

std::vector<SignInCase> signInCases() {
  const std::string plain = "AGFubmFAZXhhbXBsZS5jaABnZWhlaW0=";
  const std::string token = "dXNlcj1hbm5hQGV4YW1wbGUuY2gBYXV0aD1CZWFyZXIgZ2VoZWltAQE=";
  const std::string tokenOfBert = "dXNlcj1iZXJ0AWF1dGg9QmVhcmVyIGdlaGVpbQEB";
  const std::string wrong = "$T NO [AUTHENTICATIONFAILED] no\r\n";
  const auto oauth = [] {
    return IMAPCredentials{.username = "anna@example.ch",
                           .method = IMAPCredentials::XOAuth2{Secret("geheim")},
                           .alternateUsernames = {"", "ANNA@example.ch", "bert"}};
  };
  std::vector<SignInCase> cases;
  const auto add = [&](SignInCase c) { cases.push_back(std::move(c)); };
  add({"login",
       script(""),
       password("geheim"),
       "",
       {"M0001 LOGIN \"anna@example.ch\" \"geheim\"", "M0002 CAPABILITY"}});
  add({"quoting",
       script(""),
       password("ge\"h\\m"),
       "",
       {R"(M0001 LOGIN "anna@example.ch" "ge\"h\\m")"}});
  add({"loginDisabled",
       script("LOGINDISABLED", {{"AUTHENTICATE", "+ \r\n"}, {plain, "$T OK\r\n"}}),
       password("geheim"),
       "",
       {"M0001 AUTHENTICATE PLAIN", plain}});
  add({"plainAfterLogin",
       script("AUTH=PLAIN",
              {{"LOGIN", "$T NO no\r\n"}, {"AUTHENTICATE", "+\r\n"}, {plain, "$T OK\r\n"}}),
       password("geheim"),
       "",
       {"M0001 LOGIN \"anna@example.ch\" \"geheim\"", "M0002 AUTHENTICATE PLAIN", plain}});
  add({"lineEndInPassword",
       script("", {{"AUTHENTICATE", "$T NO no\r\n"}}),
       password("a\r\nb"),
       "rejected the sign-in for anna@example.ch",
       {"M0001 AUTHENTICATE PLAIN"}});
  add({"challengeAfterPlain",
       script("LOGINDISABLED", {{"AUTHENTICATE", "+ \r\n"}, {plain, "+ eyJ9\r\n"}, {"", wrong}}),
       password("geheim"),
       "Wrong username or password",
       {"M0001 AUTHENTICATE PLAIN", plain, ""}});
  add({"wrongPassword",
       script("AUTH=PLAIN", {{"LOGIN", wrong}, {"AUTHENTICATE", "+\r\n"}, {plain, wrong}}),
       password("geheim"),
       "Wrong username or password for anna@example.ch at 127.0.0.1.",
       {"M0001 LOGIN \"anna@example.ch\" \"geheim\"", "M0002 AUTHENTICATE PLAIN", plain}});
  add({"mechanismUnknown",
       script("", {{"LOGIN", wrong}, {"AUTHENTICATE", "$T BAD what?\r\n"}}),
       password("geheim"),
       "Wrong username or password",
       {}});
  add({"hangsUp",
       script("AUTH=PLAIN", {{"LOGIN", wrong + "* BYE\r\n$C"}}),
       password("geheim"),
       "Wrong username or password",
       {}});
  add({"echo",
       script("AUTH=PLAIN", {{"LOGIN", "$T NO is geheim right?\r\n"},
                             {"AUTHENTICATE", "+\r\n"},
                             {plain, "$T NO " + plain + " geheim\r\n"}}),
       password("geheim"),
       "rejected the sign-in",
       {}});
  add({"echoWithoutStatus",
       script("", {{"LOGIN", "$T HM geheim\r\n"}}),
       password("geheim"),
       "The server sent something unexpected: M0001 HM ••••••",
       {}});
  add({"localPart",
       script("", {{"LOGIN \"anna@icloud.com\"", wrong}, {"AUTHENTICATE", wrong}}),
       password("geheim", "anna@icloud.com"),
       "",
       {"M0001 LOGIN \"anna@icloud.com\" \"geheim\"", "M0002 AUTHENTICATE PLAIN",
        "M0003 LOGIN \"anna\" \"geheim\""},
       "anna"});
  add({"localPartAlone",
       script("", {{"LOGIN", wrong}, {"AUTHENTICATE", wrong}}),
       password("geheim", "anna"),
       "Wrong username or password",
       {}});
  add({"token",
       script("", {{"AUTHENTICATE", "$T OK\r\n"}}),
       oauth(),
       "",
       {"M0001 AUTHENTICATE XOAUTH2 " + token, "M0002 CAPABILITY"}});
  add({"tokenRefused",
       script("", {{"AUTHENTICATE", "+ eyJzdGF0dXMiOiI0MDAgZ2VoZWltIn0=\r\n"},
                   {"", "$T NO [AUTHENTICATIONFAILED] no\r\n"}}),
       oauth(),
       "{\"status\":\"400 ••••••\"}",
       {"M0001 AUTHENTICATE XOAUTH2 " + token, ""}});
  add({"alias",
       script("", {{"AUTHENTICATE XOAUTH2 " + token,
                    "$T BAD User is authenticated but not connected.\r\n"}}),
       oauth(),
       "",
       {"M0001 AUTHENTICATE XOAUTH2 " + token, "M0002 AUTHENTICATE XOAUTH2 " + tokenOfBert},
       "bert"});
  add({"noMailbox",
       script("", {{"AUTHENTICATE", "$T NO User is Authenticated But Not Connected.\r\n"}}),
       oauth(),
       "signed in at 127.0.0.1, but no mailbox opened.",
       {}});
  return cases;
}

TEST(IMAPClient, signsIn) {
  const std::string plain = "AGFubmFAZXhhbXBsZS5jaABnZWhlaW0=";
  for (SignInCase& c : signInCases()) {
    SCOPED_TRACE(c.name);
    ScriptedIMAPServer server(std::move(c.script));
    IMAPClient client(server.address(), IMAPAccessMode::readOnly);
    std::string trace;
    client.setTraceHandler([&](std::string_view line, bool) { trace += line; });
    client.connect();
    const std::string failed = failure([&] { client.login(c.credentials); });
    EXPECT_THAT(failed, HasSubstr(c.failure));
    EXPECT_EQ(failed.empty(), c.failure.empty()) << failed;
    EXPECT_EQ(client.acceptedUsername(), c.accepted);
    const Strings received = server.received();
    ASSERT_GE(received.size(), c.sent.size());
    EXPECT_EQ(Strings(received.begin(), received.begin() + std::ssize(c.sent)), c.sent);
    for (const std::string& secret : {std::string("geheim"), plain, std::string("Z2VoZWlt")}) {
      EXPECT_THAT(failed + trace, Not(HasSubstr(secret)));
    }
  }
}

TEST(IMAPClient, enablesWhatTheServerKnows) {
  const std::string capabilities =
      "* CAPABILITY IMAP4rev1 ENABLE id UTF8=ACCEPT CONDSTORE\r\n$T OK\r\n";
  const struct {
    const char *name, *enabled, *sent;
  } kCases[] = {
      {"utf8", "* ENABLED CONDSTORE utf8=accept\r\n$T OK\r\n",
       "M0005 EXAMINE \"Entwürfe\" (CONDSTORE)"},
      {"notUtf8", "* ENABLED CONDSTORE\r\n$T OK\r\n", "M0005 EXAMINE \"Entw&APw-rfe\" (CONDSTORE)"},
      {"refused", "$T BAD no\r\n", "M0005 EXAMINE \"Entw&APw-rfe\" (CONDSTORE)"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    ScriptedIMAPServer server(
        script("", {{"CAPABILITY", capabilities}, {"ENABLE", c.enabled}, {"ID", "$T NO\r\n"}}));
    IMAPClient client(server.address(), IMAPAccessMode::readOnly);
    client.connect();
    client.login(password("geheim"));
    client.select("Entwürfe", true);
    EXPECT_THAT(server.received(),
                ElementsAre(StartsWith("M0001 LOGIN"), "M0002 CAPABILITY",
                            "M0003 ENABLE CONDSTORE UTF8=ACCEPT",
                            R"(M0004 ID ("name" "Ambervane" "version" "1.0"))", c.sent));
  }
}

TEST(IMAPClient, guardsTheMailbox) {
  ScriptedIMAPServer server(script(""));
  IMAPClient reader(server.address(), IMAPAccessMode::readOnly);
  reader.connect();
  const std::string refusal = " would modify the mailbox; this connection is read-only";
  EXPECT_EQ(failure([&] { reader.select("INBOX", false); }), "Unsupported: SELECT" + refusal);
  EXPECT_EQ(failure([&] { reader.createFolder("x"); }), "Unsupported: CREATE" + refusal);
  EXPECT_EQ(failure([&] { reader.append("mail", "x"); }), "Unsupported: APPEND" + refusal);
  EXPECT_THAT(failure([&] { reader.listFolders("", "*\"\r\nM1 DELETE x"); }),
              Not(HasSubstr("DELETE")));
  reader.logout();
  reader.logout();
  for (const std::string& line : server.received()) EXPECT_THAT(line, Not(StartsWith("M1")));
  EXPECT_EQ(server.received().back(), "M0002 LOGOUT");
}

TEST(IMAPClient, listsFolders) {
  ScriptedIMAPServer server(
      script("SPECIAL-USE",
             {{"LIST \"\" \"*\" RETURN", "$T BAD unknown option\r\n"},
              {"LIST",
               "* LIST (\\HasNoChildren) \"/\" inbox\r\n* LIST (\\All) NIL \"[G]/All &- Mail\"\r\n"
               "* list () \"/\" {8}\r\na\"b\\ ü!\r\n* LIST (\\NoSelect) \"/\" dir\r\n"
               "* LIST (\\NonExistent) \"/\" gone\r\n* LIST (\\Drafts \\x) \".\" Entw&APw-rfe\r\n"
               "* LIST () \"/\" \"A&B\"\r\n* 3 EXISTS\r\n* LIST\r\n$T OK done\r\n"}}));
  IMAPClient client(server.address(), IMAPAccessMode::readOnly);
  client.connect();
  const auto folders = client.listFolders();
  const std::vector<IMAPFolder> expected = {{"inbox", "/", {"\\hasnochildren"}},
                                            {"[G]/All & Mail", "", {"\\all"}},
                                            {"a\"b\\ ü!", "/", {}},
                                            {"Entwürfe", ".", {"\\drafts", "\\x"}},
                                            {"A&B", "/", {}}};
  EXPECT_EQ(folders, expected);
  EXPECT_TRUE(folders.at(0).isInbox());
  EXPECT_EQ(folders.at(1).specialUse(), "all");
  EXPECT_EQ(folders.at(3).specialUse(), "drafts");
  // What the server wrote against the rules goes back as it wrote it.
  for (const IMAPFolder& folder : folders) client.select(folder.path, true);
  const Strings received = server.received();
  EXPECT_THAT(Strings(received.end() - 5, received.end()),
              ElementsAre(EndsWith(" \"inbox\""), EndsWith(" \"[G]/All &- Mail\""),
                          EndsWith(" \"a\\\"b\\\\ ü!\""), EndsWith(" \"Entw&APw-rfe\""),
                          EndsWith(" \"A&B\"")));
}

TEST(IMAPClient, opensAndAsks) {
  ScriptedIMAPServer server(script(
      "CONDSTORE",
      {{"EXAMINE \"no\"", "$T NO [NONEXISTENT] Unknown mailbox\r\n"},
       {"EXAMINE",
        "* 172 exists\r\n* 1 RECENT\r\n* OK [UNSEEN 12] first\r\n* OK [UIDVALIDITY 3857529045] "
        "v\r\n"
        "* OK [UIDNEXT 4392] n\r\n* FLAGS (\\Seen)\r\n* OK [PERMANENTFLAGS (\\Seen \\*)] l\r\n"
        "* OK [HIGHESTMODSEQ 715194045007]\r\n$T OK [READ-ONLY] done\r\n"},
       {"STATUS",
        "* STATUS {5}\r\nINBOX (messages 2 UIDNEXT 44 UNSEEN 1 UIDVALIDITY 9 "
        "HIGHESTMODSEQ 7 X (y))\r\n$T OK\r\n"}}));
  IMAPClient client(server.address(), IMAPAccessMode::readOnly);
  client.connect();
  const IMAPMailboxStatus opened = {.messages = 172,
                                    .recent = 1,
                                    .unseen = 12,
                                    .uidNext = 4392,
                                    .uidValidity = 3857529045,
                                    .highestModSeq = 715194045007,
                                    .readOnly = true,
                                    .permanentFlags = {"\\Seen", "\\*"}};
  EXPECT_EQ(client.select("INBOX", true), opened);
  EXPECT_EQ(client.selected(), "INBOX");
  const IMAPMailboxStatus asked = {
      .messages = 2, .unseen = 1, .uidNext = 44, .uidValidity = 9, .highestModSeq = 7};
  EXPECT_EQ(client.status("INBOX"), asked);
  EXPECT_EQ(failure([&] { client.select("no", true); }),
            "EXAMINE failed: M0003 NO [NONEXISTENT] Unknown mailbox");
  EXPECT_EQ(client.selected(), std::nullopt);
  EXPECT_EQ(server.received().at(1),
            "M0002 STATUS \"INBOX\" (MESSAGES UIDNEXT UIDVALIDITY UNSEEN HIGHESTMODSEQ)");
}

TEST(IMAPClient, searches) {
  const Date day{1707127200};
  const struct {
    const char *name, *capabilities, *exists, *reply;
    std::optional<Date> since, before;
    std::optional<std::int64_t> minimum;
    std::vector<std::int64_t> found;
    Strings sent;
  } kCases[] = {
      {"all",
       "",
       "9",
       "* SEARCH 5 3 x (MODSEQ 7)\r\n* SEARCH\r\n",
       {},
       {},
       {},
       {3, 5},
       {"UID SEARCH ALL"}},
      {"criteria",
       "",
       "9",
       "",
       day,
       day,
       4,
       {},
       {"UID SEARCH SINCE 05-Feb-2024 BEFORE 05-Feb-2024 UID 4:*"}},
      {"extended",
       "ESEARCH",
       "90000",
       "* ESEARCH (TAG \"M0002\") UID ALL 4:2,9\r\n",
       {},
       {},
       {},
       {2, 3, 4, 9},
       {"UID SEARCH RETURN (ALL) ALL"}},
      {"extendedNothing",
       "ESEARCH",
       "9",
       "* ESEARCH (TAG \"M0002\") UID\r\n",
       {},
       {},
       7,
       {},
       {"UID SEARCH RETURN (ALL) UID 7:*"}},
      {"inParts",
       "",
       "100001",
       "* SEARCH 5\r\n",
       {},
       {},
       2,
       {5},
       {"UID SEARCH 100001:* UID 2:*", "UID SEARCH 50001:100000 UID 2:*",
        "UID SEARCH 1:50000 UID 2:*"}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    ScriptedIMAPServer server(
        script(c.capabilities, {{"EXAMINE", "* "s + c.exists + " EXISTS\r\n$T OK\r\n"},
                                {"UID SEARCH", c.reply + "$T OK\r\n"s}}));
    IMAPClient client(server.address(), IMAPAccessMode::readOnly);
    client.connect();
    client.select("INBOX", true);
    EXPECT_EQ(client.searchUIDs(c.since, c.before, c.minimum), c.found);
    Strings sent = server.received();
    sent.erase(sent.begin());
    for (std::string& line : sent) line.erase(0, 6);
    EXPECT_EQ(sent, c.sent);
  }
}

TEST(IMAPClient, appends) {
  const struct {
    const char *name, *capabilities, *reply;
    std::string failure;
    IMAPAppendResult result;
    const char* line;
  } kCases[] = {
      {"waits", "", "$T OK [APPENDUID 7 300] done\r\n", "", {7, 300}, "{5}"},
      {"doesNotWait",
       "LITERAL+",
       "+ go on\r\n$T OK [APPENDUID 7 x] done\r\n",
       "",
       {7, std::nullopt},
       "{5+}"},
      {"minus", "LITERAL-", "$T OK done\r\n", "", {}, "{5+}"},
      {"refusedAtOnce",
       "",
       "$!$T NO [OVERQUOTA] full\r\n",
       "APPEND failed: M0001 NO [OVERQUOTA] full",
       {},
       "{5}"},
      {"refusedAfterwards", "LITERAL+", "$T BAD no\r\n", "APPEND failed: M0001 BAD no", {}, "{5+}"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    ScriptedIMAPServer server(script(c.capabilities, {{"APPEND", c.reply}}));
    IMAPClient client(server.address(), IMAPAccessMode::readWrite);
    client.connect();
    EXPECT_EQ(failure([&] {
                EXPECT_EQ(client.append("a\r\n\0b"sv, "Gesendet & Co",
                                        {MessageFlag::seen, MessageFlag::recent,
                                         MessageFlag::flagged, MessageFlag::deleted},
                                        Date{1707127200}),
                          c.result);
              }),
              c.failure);
    client.createFolder("Neu");
    EXPECT_EQ(server.received().front(),
              "M0001 APPEND \"Gesendet &- Co\" (\\Flagged \\Seen) "
              "\"05-Feb-2024 10:00:00 +0000\" "s +
                  c.line);
    EXPECT_EQ(server.received().back(), "M0002 CREATE \"Neu\"");
    EXPECT_EQ(server.received().size(), c.reply[1] == '!' ? 2U : 3U);
  }
}

TEST(IMAPClient, isOfNoUseAfterAFailureOfTheConnection) {
  const std::string endlessAnswer(1'100'000, 'a');
  const struct {
    const char* name;
    std::string reply, failure;
  } kCases[] = {
      {"closedInMidLiteral", "* 1 FETCH (UID 1 BODY[] {100}\r\nabc$C",
       "Connection failed: server closed the connection"},
      {"resetInMidLiteral", "* 1 FETCH (UID 1 BODY[] {100}\r\nabc$R",
       "Connection failed: Connection reset by peer"},
      {"silentInMidLiteral", "* 1 FETCH (UID 1 BODY[] {100}\r\nabc$H",
       "127.0.0.1 accepted the connection but sent nothing for 0 seconds"},
      {"bye", "* BYE shutting down\r\n$C", "Connection failed: server closed the connection"},
      {"endlessLine", endlessAnswer,
       "The server sent something unexpected: the server sent a line without an end to it"},
      {"noStatus", "$T\r\n", "The server sent something unexpected: M0001"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    ScriptedIMAPServer server(script("", {{"UID FETCH", c.reply}}));
    IMAPClient client(server.address(0.8), IMAPAccessMode::readOnly);
    client.connect();
    const std::vector<std::int64_t> uids = {1, 2};
    EXPECT_EQ(failure([&] { client.fetchMessages(uids, 25, [](IMAPMessage) { return true; }); }),
              c.failure);
    EXPECT_EQ(failure([&] { client.searchUIDs(); }), "Not connected to the server");
    client.logout();
  }
}

}  // namespace
}  // namespace ambervane
