#include "syncengine/imap_archive_sync.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "base/digest.h"
#include "imapkit/imap_error.h"
#include "store/catalog_sync_state.h"
#include "store/message_reader.h"
#include "syncengine/sync_settings.h"
#include "tests/support/dovecot.h"
#include "tests/support/mail_builder.h"
#include "tests/support/scripted_imap_server.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using UIDs = std::vector<std::int64_t>;

constexpr int kManyMails = 130;  ///< several batches

IMAPServer plainServer(std::uint16_t port) {
  return {.host = "127.0.0.1", .port = port, .useTLS = false, .timeout = 10};
}

IMAPCredentials credentials(const std::string& user = "anna", std::string password = "geheim") {
  return {.username = user, .method = IMAPCredentials::Login{Secret(std::move(password))}};
}

SyncProgress collectFrom(MailArchive& archive, std::uint16_t port, const SyncScope& scope = {},
                         const std::function<bool()>& shouldCancel = nullptr,
                         const SyncProgressHandler& progress = nullptr) {
  IMAPArchiveSync sync(archive, plainServer(port), credentials(), "Anna");
  return sync.run(scope, shouldCancel, progress);
}

/// Collecting from a Dovecot into an archive.
class Collecting : public testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = DovecotServer::unavailable()) GTEST_SKIP() << *reason;
    server_.emplace(DovecotServer::Options{.tls = false});
  }
  SyncProgress run(const SyncScope& scope = {}) {
    return collectFrom(*archive_, server_->plainPort(), scope);
  }
  std::int64_t count(const std::string& sql) { return archive_->catalog().database().count(sql); }
  std::string lastDetail(AuditAction action, const std::string& key) {
    const auto entries = archive_.entries(action);
    return entries.empty() ? "" : entries.back().details.at(key);
  }

  TestArchive archive_;
  std::optional<DovecotServer> server_;
};

TEST_F(Collecting, takesEveryFolderWithoutTouchingIt) {
  struct Placed {
    std::string folder, name, flags;
    Bytes mail;
  };
  std::vector<Placed> placed = {{"INBOX", "", "", plainMail(1)},
                                {"INBOX", "", "FS", mailWithFiles(2, {{"a.bin", noise(9000)}})},
                                {"Kunden/Müller & Söhne", "", "", plainMail(3)},
                                {"Kunden/Müller & Söhne/2024", "", "S", plainMail(4)},
                                {"Kopien", "", "", plainMail(1)}};
  for (Placed& mail : placed) {
    mail.name = server_->deliver(mail.folder, mail.mail, mail.flags, Date{1700000000});
  }
  const SyncProgress first = run();
  EXPECT_EQ(first.stored, 4);
  EXPECT_EQ(first.duplicates, 1);
  EXPECT_EQ(first.failed, 0);
  EXPECT_EQ(first.foldersDone, first.foldersTotal);
  EXPECT_THAT(first.remarks, IsEmpty());
  for (const Placed& mail : placed) {
    SCOPED_TRACE(mail.folder);
    const auto row = archive_->catalog().message(sha256Hex(mail.mail));
    ASSERT_TRUE(row);
    EXPECT_EQ(rawMessage(*archive_, *row), mail.mail);
    EXPECT_EQ(row->internalAt, Date{1700000000});
    const auto places = archive_->catalog().memberships(row->id);
    EXPECT_TRUE(std::any_of(places.begin(), places.end(), [&](const Membership& place) {
      return place.folder == mail.folder && place.account == "Anna" && place.uid > 0;
    }));
    EXPECT_EQ(server_->flags(mail.folder, mail.name), mail.flags);
  }
  const auto id = archive_->catalog().messageID(sha256Hex(placed[1].mail));
  // The server may also call it recent, which it is for one of those who look.
  EXPECT_THAT(archive_->catalog().memberships(id.value()).front().flags,
              testing::MatchesRegex(R"(\\Flagged (\\Recent )?\\Seen)"));

  const AuditEntry started = archive_.entries(AuditAction::syncStarted).at(0);
  EXPECT_EQ(started.subject, "Anna");
  EXPECT_EQ(started.details.at("access_mode"), "read-only (EXAMINE + BODY.PEEK)");
  EXPECT_EQ(started.details.at("tls"), "no");
  EXPECT_EQ(lastDetail(AuditAction::syncFinished, "stored"), "4");
  EXPECT_EQ(archive_.entries(AuditAction::chainSealed).size(), 2U);  // creation and this run
  EXPECT_EQ(SyncSettings::load(*archive_, "Anna")->username, "anna");
  EXPECT_TRUE(archive_->catalog().account("Anna")->lastSyncAt);

  const SyncProgress second = run();
  EXPECT_EQ(second.stored + second.duplicates + second.departed + second.returned, 0);
  EXPECT_EQ(archive_.entries(AuditAction::messageDuplicate).size(), 1U);
}

TEST_F(Collecting, followsMessagesThatLeaveAndMove) {
  std::vector<std::string> names;
  for (int i = 0; i < 4; ++i) names.push_back(server_->deliver("INBOX", plainMail(i)));
  server_->createFolder("Ablage");
  run();
  server_->remove("INBOX", names[0]);
  server_->move(names[1], "INBOX", "Ablage");
  server_->deliver("INBOX", plainMail(9));
  const SyncProgress result = run();
  EXPECT_EQ(result.stored, 1);
  EXPECT_EQ(result.duplicates, 1);
  EXPECT_EQ(result.departed, 2);
  const AuditEntry entry = archive_.entries(AuditAction::mailboxMembershipChanged).at(0);
  EXPECT_EQ(entry.subject, "INBOX");
  EXPECT_EQ(entry.details.at("departed"), "2");
  EXPECT_EQ(entry.details.at("stillPresent"), "3");
  EXPECT_EQ(count("SELECT count(*) FROM message"), 5);

  // Whoever looks at a part of a mailbox cannot tell what left it.
  server_->remove("INBOX", names[2]);
  SyncScope scope;
  scope.since = Date{1};
  EXPECT_EQ(run(scope).departed, 0);
  EXPECT_EQ(run().departed, 1);
}

TEST_F(Collecting, anotherNumberingStoresNothingTwice) {
  for (int i = 0; i < 5; ++i) server_->deliver("INBOX", plainMail(i));
  run();
  server_->changeUidValidity("INBOX");
  const SyncProgress result = run();
  EXPECT_EQ(result.stored, 0);
  EXPECT_EQ(result.duplicates, 5);
  EXPECT_EQ(result.departed, 0);
  EXPECT_THAT(result.remarks, Contains(testing::StartsWith("INBOX: UIDVALIDITY changed (")));
  EXPECT_EQ(count("SELECT count(*) FROM message_folder WHERE uid BETWEEN 1 AND 5"), 5);
  EXPECT_EQ(run().duplicates, 0);
}

TEST_F(Collecting, aCancelledRunEndsInOrderAndIsCompleted) {
  for (int i = 0; i < kManyMails; ++i) server_->deliver("INBOX", plainMail(i));
  std::atomic<std::int64_t> seen = 0;
  const SyncProgress first = collectFrom(
      *archive_, server_->plainPort(), {}, [&] { return seen > 30; },
      [&](const SyncProgress& state) { seen = state.stored; });
  EXPECT_TRUE(first.cancelled);
  EXPECT_GT(first.stored, 30);
  EXPECT_LT(first.stored, kManyMails);
  EXPECT_EQ(lastDetail(AuditAction::syncFinished, "note"), "cancelled");
  EXPECT_EQ(archive_.entries(AuditAction::chainSealed).size(), 2U);
  EXPECT_THAT(archive_.entries(AuditAction::syncIncomplete), IsEmpty());

  const SyncProgress second = run();
  EXPECT_FALSE(second.cancelled);
  EXPECT_EQ(second.stored, kManyMails - first.stored);
  EXPECT_EQ(second.duplicates, 0);
}

/// Whether records are written one by one or wait for a block.
class Killed : public Collecting, public testing::WithParamInterface<CompressionEffort> {};

TEST_P(Killed, aRunIsCompletedByTheNext) {
  TestArchive archive(RetentionPolicy(), GetParam());
  server_->deliver("Ablage", plainMail(1000));
  for (int i = 0; i < kManyMails; ++i) server_->deliver("INBOX", plainMail(i));
  archive.close();
  const auto dieAfter = [&](std::int64_t messages) {
    MailArchive opened(archive.path(), OpenMode::readWrite, TestArchive::environment());
    collectFrom(opened, server_->plainPort(), {}, nullptr, [&](const SyncProgress& state) {
      if (state.stored >= messages) ::raise(SIGKILL);
    });
  };
  for (const std::int64_t messages : {30, 31}) {
    EXPECT_EXIT(dieAfter(messages), testing::KilledBySignal(SIGKILL), "");
  }
  archive.reopen();
  collectFrom(*archive, server_->plainPort());
  EXPECT_EQ(archive->catalog().database().count("SELECT count(*) FROM message"), kManyMails + 1);
  EXPECT_EQ(archive->catalog().database().count("SELECT count(DISTINCT uid) FROM message_folder mf "
                                                "JOIN folder f ON f.id = mf.folder_id WHERE path = "
                                                "'INBOX'"),
            kManyMails);
}

INSTANTIATE_TEST_SUITE_P(Efforts, Killed,
                         testing::Values(CompressionEffort::balanced, CompressionEffort::smallest));

TEST_F(Collecting, datesAreNoReasonToForgetTheRest) {
  const Date january{1704067200};
  for (int i = 0; i < 6; ++i) {
    server_->deliver("INBOX", plainMail(i), "", Date{january.seconds + (i % 3) * 40 * 86400.0});
  }
  // Each run takes what no earlier one took, however their dates lie to each other.
  const struct {
    const char* name;
    std::optional<Date> since, before;
    std::int64_t stored;
  } kRuns[] = {
      {"march", Date{january.seconds + 70 * 86400.0}, std::nullopt, 2},
      {"marchAgain", Date{january.seconds + 70 * 86400.0}, std::nullopt, 0},
      {"february", Date{january.seconds + 30 * 86400.0}, Date{january.seconds + 60 * 86400.0}, 2},
      {"all", std::nullopt, std::nullopt, 2},
      {"allAgain", std::nullopt, std::nullopt, 0},
  };
  for (const auto& c : kRuns) {
    SCOPED_TRACE(c.name);
    SyncScope scope;
    scope.since = c.since;
    scope.before = c.before;
    const SyncProgress result = run(scope);
    EXPECT_EQ(result.stored, c.stored);
    EXPECT_EQ(result.duplicates, 0);
  }
  EXPECT_EQ(count("SELECT uid_next FROM folder WHERE path = 'INBOX'"), 7);
}

TEST_F(Collecting, numbersOfLocalMailAreNotTakenForUids) {
  for (int i = 0; i < 3; ++i) server_->deliver("INBOX", plainMail(i));
  std::vector<Bytes> local;
  for (int i = 100; i < 110; ++i) local.push_back(plainMail(i));
  archive_.ingest(local, "INBOX", "Anna");
  EXPECT_EQ(run().stored, 3);
  EXPECT_EQ(archive_->catalog().account("Anna")->kind, "imap");
  archive_.ingest({plainMail(1), plainMail(200)}, "INBOX", "Anna");
  server_->deliver("INBOX", plainMail(4));
  const SyncProgress result = run();
  EXPECT_EQ(result.stored, 1);
  EXPECT_EQ(result.departed, 0);
}

TEST_F(Collecting, failuresToBegin) {
  const auto attempt = [&](std::uint16_t port, const char* password) {
    IMAPArchiveSync sync(*archive_, plainServer(port), credentials("anna", password), "Anna");
    EXPECT_THROW(sync.run({}, nullptr, nullptr), IMAPError);
  };
  attempt(server_->plainPort(), "falsch");
  server_->stop();
  attempt(server_->plainPort(), "geheim");
  EXPECT_EQ(archive_.entries(AuditAction::syncStarted).size(), 2U);
  EXPECT_THAT(archive_.entries(AuditAction::syncFinished), IsEmpty());
}

/// What a server that may be out of order says of its one mailbox in one run.
struct Served {
  UIDs listed = {};          ///< when asked for what is new
  UIDs live = {};            ///< when asked for everything
  UIDs delivered = {};       ///< what it hands over of whatever it is asked for
  std::int64_t exists = -1;  ///< below 0: as many as are `live`
  std::int64_t uidValidity = 1;
  bool resets = false;  ///< in answer to the second fetch
};

UIDs from(std::int64_t first, std::int64_t last) {
  UIDs uids;
  for (; first <= last; ++first) uids.push_back(first);
  return uids;
}

UIDs without(UIDs uids, std::int64_t uid) {
  std::erase(uids, uid);
  return uids;
}

std::string searchReply(const UIDs& uids) {
  std::string reply = "* SEARCH";
  for (const std::int64_t uid : uids) reply += " " + std::to_string(uid);
  return reply + "\r\n$T OK done\r\n";
}

IMAPScript script(const Served& served) {
  const std::int64_t exists =
      served.exists < 0 ? static_cast<std::int64_t>(served.live.size()) : served.exists;
  const std::int64_t next =
      std::max<std::int64_t>({1, exists + 1, served.live.empty() ? 1 : served.live.back() + 1});
  std::string bodies;
  for (const std::int64_t uid : served.delivered) {
    const Bytes mail = plainMail(static_cast<int>(uid));
    bodies += "* " + std::to_string(uid) + " FETCH (UID " + std::to_string(uid) +
              " FLAGS () BODY[] {" + std::to_string(mail.size()) + "}\r\n" + mail + ")\r\n";
  }
  IMAPScript script;
  script.replies = {{"LIST", "* LIST () \"/\" INBOX\r\n$T OK done\r\n"},
                    {"EXAMINE", "* " + std::to_string(exists) + " EXISTS\r\n* OK [UIDVALIDITY " +
                                    std::to_string(served.uidValidity) + "] x\r\n* OK [UIDNEXT " +
                                    std::to_string(next) + "] x\r\n$T OK done\r\n"},
                    // The first listing of a mailbox asks for everything as well.
                    {"UID SEARCH UID", searchReply(served.listed)},
                    {"UID SEARCH ALL", searchReply(served.live)},
                    {"UID FETCH", bodies + "$T OK done\r\n"}};
  if (served.resets) script.replies.emplace_back("UID FETCH", "$R");
  return script;
}

/// Runs against servers that do what none should.
class Odd : public testing::Test {
 protected:
  SyncProgress run(const IMAPScript& script, const std::string& user = "anna") {
    const ScriptedIMAPServer server(script);
    IMAPArchiveSync sync(*archive(), server.address(), credentials(user), "Anna");
    const SyncProgress result = sync.run({}, nullptr, nullptr);
    fetches_.clear();
    for (const std::string& line : server.received()) {
      const std::size_t at = line.find("UID FETCH ");
      if (at != line.npos) fetches_.push_back(line.substr(at + 10, line.find(" (") - at - 10));
    }
    return result;
  }
  SyncProgress run(const Served& served) { return run(script(served)); }
  UIDs pending() {
    UIDs uids;
    archive()->catalog().database().forEachRow("SELECT uid FROM pending_fetch ORDER BY uid", {},
                                               [&](const Row& row) {
                                                 uids.push_back(row.integer("uid"));
                                                 return true;
                                               });
    return uids;
  }

  TestArchive& archive() { return *archive_; }

  std::optional<TestArchive> archive_{std::in_place};
  std::vector<std::string> fetches_;  ///< sets asked for in the last run
};

TEST_F(Odd, whatTheServerDoesToAMailbox) {
  const struct {
    const char* name;
    struct Run {
      Served served;
      std::int64_t stored, duplicates, failed, missing, departed, returned;
      UIDs owed;            ///< afterwards
      const char* remark;   ///< a part of some remark; empty: there is none
      const char* fetched;  ///< a set asked for; empty: nothing was
    };
    std::vector<Run> runs;
  } kCases[] = {
      {"listsWithoutDelivering",
       {{{{}, from(1, 3), {1, 3}},
         2,
         0,
         0,
         1,
         0,
         0,
         {2},
         "1 message(s) the server listed but",
         "1:3"},
        {{{3}, from(1, 3), {2, 3}}, 1, 0, 0, 0, 0, 0, {}, "asking again for 1 message(s)", "2"},
        {{{3}, from(1, 3), {}}, 0, 0, 0, 0, 0, 0, {}, "", ""}}},
      // Two batches: a third command on its way would meet the reset before the first was read.
      {"resetsInTheSecondBatch",
       {{{{}, from(1, 50), without(from(1, 50), 7), -1, 1, true},
         24,
         0,
         1,
         1,
         0,
         0,
         {7},
         "INBOX: ",
         "1:25"},
        {{from(26, 50), from(1, 50), from(1, 50)},
         26,
         0,
         0,
         0,
         0,
         0,
         {},
         "asking again",
         "7,26:49"},
        {{{50}, from(1, 50), {}}, 0, 0, 0, 0, 0, 0, {}, "", ""}}},
      {"emptiesTheMailbox",
       {{{{}, from(1, 30), from(1, 30)}, 30, 0, 0, 0, 0, 0, {}, "", "1:25"},
        {{{}, {}, {}}, 0, 0, 0, 0, 0, 0, {}, "server listed no messages, leaving", ""},
        {{{}, from(1, 9), {}, 30}, 0, 0, 0, 0, 0, 0, {}, "counts 30 message(s) and listed 9", ""},
        {{{}, from(1, 29), {}}, 0, 0, 0, 0, 1, 0, {}, "", ""},
        {{{}, from(1, 30), {}}, 0, 0, 0, 0, 0, 1, {}, "", ""}}},
      {"listsNothingAtFirst",
       {{{{}, {}, {}, 3}, 0, 0, 0, 0, 0, 0, {}, "counts 3 message(s) and listed 0", ""},
        {{{}, from(1, 3), from(1, 3)}, 3, 0, 0, 0, 0, 0, {}, "", "1:3"}}},
      {"leavesOneOutOfTheNewOnes",
       {{{{}, from(1, 2), from(1, 2)}, 2, 0, 0, 0, 0, 0, {}, "", "1:2"},
        {{{4}, from(1, 4), {4}}, 1, 0, 0, 1, 0, 0, {3}, "listed but did not send", "4"},
        {{{4}, from(1, 4), {3}}, 1, 0, 0, 0, 0, 0, {}, "asking again", "3"}}},
      {"numbersAnew",
       {{{{}, from(1, 3), from(1, 2)}, 2, 0, 0, 1, 0, 0, {3}, "listed but", "1:3"},
        {{{}, from(1, 4), from(1, 4), -1, 2},
         2,
         2,
         0,
         0,
         0,
         0,
         {},
         "UIDVALIDITY changed (1 → 2)",
         "1:4"}}},
      {"givesNoNumbering",
       {{{{}, from(1, 2), from(1, 2), -1, 0}, 2, 0, 0, 0, 0, 0, {}, "gives no UIDVALIDITY", "1:2"},
        {{{}, from(1, 3), from(1, 3), -1, 0},
         1,
         2,
         0,
         0,
         0,
         0,
         {},
         "gives no UIDVALIDITY",
         "1:3"}}},
  };
  for (const auto& c : kCases) {
    archive_.emplace();
    int number = 0;
    for (const auto& run : c.runs) {
      SCOPED_TRACE(c.name + std::string(", run ") + std::to_string(++number));
      const SyncProgress result = this->run(run.served);
      EXPECT_EQ(result.stored, run.stored);
      EXPECT_EQ(result.duplicates, run.duplicates);
      EXPECT_EQ(result.failed, run.failed);
      EXPECT_EQ(result.missing, run.missing);
      EXPECT_EQ(result.departed, run.departed);
      EXPECT_EQ(result.returned, run.returned);
      EXPECT_EQ(pending(), run.owed);
      EXPECT_EQ(archive().entries(AuditAction::syncFinished).size(),
                static_cast<std::size_t>(number));
      if (*run.remark == '\0') {
        EXPECT_THAT(result.remarks, IsEmpty());
      } else {
        EXPECT_THAT(result.remarks, Contains(HasSubstr(run.remark)));
      }
      if (*run.fetched == '\0') {
        EXPECT_THAT(fetches_, IsEmpty());
      } else {
        EXPECT_THAT(fetches_, Contains(run.fetched));
      }
    }
  }
}

TEST_F(Odd, whatNeverArrivesIsAskedForTenTimes) {
  int asked = 0;
  for (int i = 0; i < 12; ++i) {
    run(Served{{3}, from(1, 3), {1, 3}});
    asked += static_cast<int>(fetches_.size());
  }
  EXPECT_EQ(asked, 10);
  EXPECT_EQ(pending(), UIDs{2});
  EXPECT_EQ(archive().entries(AuditAction::syncIncomplete).size(), 10U);
  EXPECT_EQ(archive().entries(AuditAction::syncIncomplete)[0].details.at("uids"), "2");
}

TEST_F(Odd, oneFolderInDisorderIsNoReasonToLeaveTheOthers) {
  IMAPScript disorder = script({{}, {1, 2}, {1, 2}});
  disorder.replies[0].second = "* LIST () \"/\" Kaputt\r\n* LIST () \"/\" INBOX\r\n$T OK done\r\n";
  disorder.replies.insert(disorder.replies.begin(), {"EXAMINE \"Kaputt\"", "$T NO kaputt\r\n"});
  const SyncProgress result = run(disorder);
  EXPECT_EQ(result.stored, 2);
  EXPECT_EQ(result.failed, 1);
  EXPECT_EQ(result.foldersDone, 1);
  EXPECT_EQ(result.foldersTotal, 2);
  EXPECT_THAT(result.remarks, Contains(testing::StartsWith("Kaputt: EXAMINE failed: ")));
}

TEST_F(Odd, aMessageWithoutBytesFailsAndIsNotOwed) {
  IMAPScript empty = script({{}, {1, 2}, {}});
  empty.replies.back().second =
      "* 1 FETCH (UID 1 BODY[] {0}\r\n)\r\n* 2 FETCH (UID 2 BODY[] NIL)\r\n$T OK done\r\n";
  const SyncProgress result = run(empty);
  EXPECT_EQ(result.failed, 1);
  EXPECT_EQ(result.failures, std::vector<std::string>{"INBOX, UID 1: empty or unreadable message"});
  EXPECT_EQ(pending(), UIDs{2});
}

TEST_F(Odd, anotherMailboxUnderTheSameName) {
  run(Served{{}, from(1, 3), from(1, 3)});
  IMAPScript other = script({{}, from(1, 3), from(1, 3)});
  for (auto& [line, reply] : other.replies) {
    for (std::size_t at = 0; (at = reply.find("<m", at)) != reply.npos; ++at) reply[at + 1] = 'b';
  }
  const SyncProgress result = run(other, "bert");
  EXPECT_EQ(result.stored, 3);
  EXPECT_THAT(result.remarks, Contains(HasSubstr("was collected from anna at 127.0.0.1 before")));
  EXPECT_EQ(run(other, "bert@example.ch").stored, 0);
}

}  // namespace
}  // namespace ambervane
