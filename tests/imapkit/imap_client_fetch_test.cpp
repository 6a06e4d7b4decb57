#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "imapkit/imap_client.h"
#include "tests/support/scripted_imap_server.h"

namespace ambervane {
namespace {

using testing::ElementsAre;

using Numbers = std::vector<std::int64_t>;
using Replies = std::vector<std::pair<std::string, std::string>>;

/// A message as a FETCH response.
std::string fetched(int uid, const std::string& body) {
  return "* " + std::to_string(uid) + " FETCH (UID " + std::to_string(uid) + " BODY[] {" +
         std::to_string(body.size()) + "}\r\n" + body + ")\r\n";
}

/// A server and a client that is connected to it.
struct Session {
  explicit Session(Replies replies)
      : server({.replies = std::move(replies)}),
        client(server.address(), IMAPAccessMode::readOnly) {
    client.connect();
  }
  /// "uid:body" of what arrives, a "|" behind each batch.
  std::string fetch(const Numbers& uids, std::size_t batchSize) {
    std::string arrived;
    client.fetchBatches(uids, batchSize, [&](const std::vector<IMAPMessage>& batch) {
      for (const IMAPMessage& m : batch) arrived += std::to_string(m.uid) + ":" + m.raw + " ";
      arrived += "|";
      return true;
    });
    return arrived;
  }
  ScriptedIMAPServer server;
  IMAPClient client;
};

TEST(IMAPClientFetch, readsWhatIsAMessage) {
  const struct {
    const char* name;
    std::string reply, arrived;
  } kCases[] = {
      {"inOrder", fetched(1, "a") + fetched(2, "b"), "1:a 2:b |"},
      {"asReceived", fetched(2, "b") + fetched(1, "a"), "2:b 1:a |"},
      {"uidBehind", "* 1 fetch (body[] {1}\r\na uid 1)\r\n", "1:a |"},
      {"quoted", "* 1 FETCH (UID 1 BODY[] \"a\\\"b\")\r\n", "1:a\"b |"},
      {"otherNames",
       "* 1 FETCH (UID 1 RFC822 {1}\r\na)\r\n* 2 FETCH (BODY.PEEK[] {1}\r\nb UID 2)\r\n",
       "1:a 2:b |"},
      {"empty", fetched(1, "") + "* 2 FETCH (UID 2 BODY[] \"\")\r\n", "1: 2: |"},
      {"nil", "* 1 FETCH (UID 1 BODY[] NIL)\r\n" + fetched(2, "b"), "2:b |"},
      {"flagsAlone", "* 1 FETCH (UID 1 FLAGS (\\Seen))\r\n", ""},
      {"inTwoResponses", "* 1 FETCH (UID 1 FLAGS (\\Seen))\r\n" + fetched(1, "a"), "1:a |"},
      {"twice", fetched(1, "a") + fetched(1, "x"), "1:a |"},
      {"notAskedFor", fetched(7, "x") + fetched(1, "a") + "* 9 EXPUNGE\r\n* OK ping\r\n", "1:a |"},
      {"withoutUid", "* 1 FETCH (BODY[] {1}\r\na)\r\n* 2 FETCH\r\n* 3 FETCH x\r\n", ""},
      {"partOfIt", "* 1 FETCH (UID 1 BODY[HEADER] {1}\r\na BODY[1] {1}\r\nb)\r\n", ""},
      {"nothing", "", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    Session session(Replies{{"UID FETCH", c.reply + "$T OK\r\n"}});
    EXPECT_EQ(session.fetch({1, 2}, 25), c.arrived);
    EXPECT_THAT(session.server.received(),
                ElementsAre("M0001 UID FETCH 1:2 (UID FLAGS INTERNALDATE RFC822.SIZE "
                            "BODY.PEEK[])"));
  }
}

TEST(IMAPClientFetch, readsAllOfAMessage) {
  Session session(Replies{
      {"UID FETCH",
       "* 4 FETCH (FLAGS (\\Seen $Junk \\answered) INTERNALDATE \" 5-Feb-2024 11:00:00 +0100\" "
       "RFC822.SIZE 44827 UID 9 BODY[] {5}\r\nA: b\n MODSEQ (7))\r\n$T OK\r\n"}});
  std::vector<IMAPMessage> messages;
  session.client.fetchMessages(Numbers{9}, 25, [&](IMAPMessage message) {
    messages.push_back(std::move(message));
    return true;
  });
  const IMAPMessage expected = {.uid = 9,
                                .flags = {MessageFlag::seen, MessageFlag::answered},
                                .rawFlags = {"\\Seen", "$Junk", "\\answered"},
                                .internalDate = Date{1707127200},
                                .size = 44827,
                                .raw = "A: b\n"};
  EXPECT_THAT(messages, ElementsAre(expected));
  const std::vector<IMAPEnvelope> envelopes = session.client.fetchEnvelopes(Numbers{9}, 25);
  EXPECT_THAT(envelopes, ElementsAre(IMAPEnvelope{9, 44827, Date{1707127200}, expected.flags}));
}

TEST(IMAPClientFetch, readsMessageIDs) {
  const std::string key = " BODY[HEADER.FIELDS (\"MESSAGE-ID\")] ";
  Session session(Replies{
      {"UID FETCH 1:3 (UID BODY.PEEK[HEADER.FIELDS (MESSAGE-ID)])",
       "* 1 FETCH (UID 1" + key + "{27}\r\nMessage-Id:\r\n <a@b.ch> \r\n\r\n)\r\n* 2 FETCH (UID 2" +
           key + "{2}\r\n\r\n)\r\n* 3 FETCH (UID 3" + key + "NIL)\r\n$T OK\r\n"}});
  EXPECT_EQ(session.client.fetchMessageIDs(Numbers{1, 2, 3}, 25),
            (std::map<std::int64_t, std::string>{{1, "a@b.ch"}}));
}

TEST(IMAPClientFetch, asksAheadOfTheAnswers) {
  // The first two requests are answered only when the third has come, the third first of all.
  Session session(Replies{
      {"UID FETCH 5:6", ""},
      {"UID FETCH 3:4", ""},
      {"UID FETCH 1:2", fetched(2, "b") + "M0003 OK\r\n" + fetched(3, "c") + fetched(5, "e") +
                            "M0001 OK\r\n" + fetched(4, "d") + fetched(1, "a") + "M0002 OK\r\n"}});
  EXPECT_EQ(session.fetch({6, 5, 4, 3, 2, 1}, 2), "5:e |3:c 4:d |2:b 1:a |");
}

TEST(IMAPClientFetch, endsWhereTheSinkSays) {
  Session session(
      Replies{{"UID FETCH", fetched(1, "a") + fetched(2, "b") + fetched(3, "c") + "$T OK\r\n"},
              {"UID SEARCH", "* SEARCH 9\r\n$T OK\r\n"}});
  const Numbers uids = {1, 2, 3};
  int count = 0;
  session.client.fetchMessages(uids, 1, [&](const IMAPMessage&) { return ++count < 2; });
  EXPECT_EQ(count, 2);
  EXPECT_EQ(session.client.searchUIDs(), Numbers{9});
  EXPECT_THROW(session.client.fetchMessages(
                   uids, 1, [](const IMAPMessage&) -> bool { throw std::runtime_error("full"); }),
               std::runtime_error);
  EXPECT_EQ(session.fetch(uids, 3), "1:a 2:b 3:c |");
  EXPECT_EQ(session.fetch({}, 3), "");
  session.client.fetchMessages(uids, 1, [](const IMAPMessage&) { return false; });
  session.client.logout();
  // A LOGOUT would wait for the answers to the requests under way.
  EXPECT_THAT(session.server.received(), testing::Each(testing::Not(testing::HasSubstr("LOGOUT"))));
}

TEST(IMAPClientFetch, goesAroundARefusedMessage) {
  Session session(Replies{{"UID FETCH 1:3", fetched(1, "a") + "$T NO [SERVERBUG] cannot read\r\n"},
                          {"UID FETCH 2 ", "$T NO [SERVERBUG] cannot read\r\n"},
                          {"UID FETCH 3 ", fetched(3, "c") + "$T OK\r\n"},
                          {"UID FETCH 4:5", fetched(4, "d") + "$T OK\r\n"}});
  EXPECT_EQ(session.fetch({1, 2, 3, 4, 5}, 3), "1:a |4:d |3:c |");
  Session refusing(Replies{{"UID FETCH", "$T NO no\r\n"}});
  EXPECT_THROW(refusing.fetch({1, 2}, 25), IMAPError);
  EXPECT_EQ(refusing.server.received().size(), 3U);
  Session unable(Replies{{"UID FETCH", fetched(1, "a") + "$T BAD no\r\n"}});
  EXPECT_THROW(unable.fetch({1, 2}, 25), IMAPError);
}

}  // namespace
}  // namespace ambervane
