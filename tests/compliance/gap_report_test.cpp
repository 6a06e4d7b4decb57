#include "compliance/gap_report.h"

#include <gtest/gtest.h>

#include "base/calendar.h"
#include "store/catalog.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

class FindGaps : public testing::Test {
 protected:
  /// Files a message; the rest of its row is of no matter here.
  std::int64_t add(std::int64_t folder, std::optional<std::int64_t> uid, std::optional<Date> sent,
                   const std::string& from = "someone@example.com",
                   const std::string& replyTo = "") {
    const std::int64_t id = catalog_.reserveMessage("digest" + std::to_string(++count_));
    MessageInsert insert;
    insert.messageID = "m" + std::to_string(count_);
    insert.subject = "Subject " + std::to_string(count_);
    insert.fromAddress = from;
    insert.inReplyTo = replyTo;
    insert.sentAt = sent;
    catalog_.completeMessage(id, insert);
    catalog_.linkMessage(id, folder, uid, "", sent);
    return id;
  }
  std::int64_t folder(const std::string& account, const std::string& path) {
    return catalog_.upsertFolder(catalog_.upsertAccount(account, "imap", {}, {}, {}), path);
  }
  GapReport find() {
    GapOptions options;
    options.calendar = DayCalendar("Europe/Zurich");
    return findGaps(catalog_, options);
  }
  void erase(std::int64_t id) {
    catalog_.database().run("UPDATE message SET erased = 1 WHERE id = ?", {id});
  }

  const ScratchFolder folder_;
  Catalog catalog_{folder_ / "catalog.sqlite", [] { return kTestTime; }};
  int count_ = 0;
};

TEST_F(FindGaps, stopsWithoutADatedMessage) {
  add(folder("a", "INBOX"), 5, std::nullopt);
  add(folder("a", "INBOX"), 9, std::nullopt, "x@y", "gone");
  const GapReport report = find();
  EXPECT_EQ(report.coverage.messages, 0);
  EXPECT_FALSE(report.coverage.firstMessage);
  EXPECT_TRUE(report.uidGaps.empty());
  EXPECT_TRUE(report.danglingReferences.empty());
}

TEST_F(FindGaps, coverageCountsDaysHereAndDaysWithMailInUtc) {
  const std::int64_t inbox = folder("a", "INBOX");
  // 23:30 UTC is the next day in Zurich.
  add(inbox, 1, Date{19723 * kSecondsPerDay + 84'600});
  add(inbox, 2, Date{19723 * kSecondsPerDay + 3'600});
  erase(add(inbox, 3, Date{19800 * kSecondsPerDay}));
  const GapReport report = find();
  EXPECT_EQ(report.coverage.messages, 2);
  EXPECT_EQ(report.coverage.daysCovered, 2);
  EXPECT_EQ(report.coverage.daysWithMail, 1);
}

TEST_F(FindGaps, holesInUidsAndMissingParents) {
  const std::int64_t inbox = folder("a", "INBOX");
  const std::int64_t other = folder("a", "Other");
  add(inbox, 9, Date{3 * kSecondsPerDay}, "x@y", "m3");
  add(inbox, 5, Date{kSecondsPerDay});
  add(inbox, 6, Date{2 * kSecondsPerDay}, "x@y", "nowhere");
  add(inbox, std::nullopt, Date{4 * kSecondsPerDay}, "x@y", "m2");
  add(other, 40, Date{5 * kSecondsPerDay});
  GapReport report = find();
  ASSERT_EQ(report.uidGaps.size(), 1U);
  EXPECT_EQ(report.uidGaps[0].account, "a");
  EXPECT_EQ(report.uidGaps[0].folder, "INBOX");
  EXPECT_EQ(report.uidGaps[0].from, 7);
  EXPECT_EQ(report.uidGaps[0].to, 8);
  EXPECT_EQ(report.uidGaps[0].previousDate, Date{2 * kSecondsPerDay});
  EXPECT_EQ(report.uidGaps[0].nextDate, Date{3 * kSecondsPerDay});
  ASSERT_EQ(report.danglingReferences.size(), 1U);
  EXPECT_EQ(report.danglingReferences[0].messageID, "nowhere");
  EXPECT_EQ(report.danglingReferences[0].referencedBySubject, "Subject 3");
  // An erased parent is absent, and its number is a hole.
  erase(2);
  report = find();
  EXPECT_EQ(report.danglingReferences.size(), 2U);
  EXPECT_EQ(report.danglingReferences[0].messageID, "m2") << "newest first";
}

TEST_F(FindGaps, directionNeedsAnAddressOfItsOwn) {
  const std::int64_t inbox = folder("a", "INBOX");
  const std::int64_t sent = folder("a", "Gesendete Objekte/GESENDET");
  for (int i = 0; i < 3; ++i) add(sent, std::nullopt, Date{i * kSecondsPerDay}, "Anna@example.com");
  add(sent, std::nullopt, Date{kSecondsPerDay}, "other@example.com");
  add(sent, std::nullopt, Date{kSecondsPerDay}, "");
  add(inbox, std::nullopt, Date{kSecondsPerDay}, "");
  add(inbox, std::nullopt, Date{kSecondsPerDay}, "kunde@example.org");
  GapReport report = find();
  EXPECT_EQ(report.direction.ownAddresses, (std::vector<std::string>{"anna@example.com"}));
  EXPECT_EQ(report.direction.outgoing, 3);
  EXPECT_EQ(report.direction.incoming, 2);
  EXPECT_EQ(report.direction.undetermined, 2);
  add(sent, std::nullopt, Date{kSecondsPerDay},
      "third@example.com");  // 3 of 6 are not three fifths
  report = find();
  EXPECT_TRUE(report.direction.ownAddresses.empty());
  EXPECT_EQ(report.direction.undetermined, 8);
  EXPECT_EQ(report.direction.incoming, 0);
}

TEST_F(FindGaps, silenceOfOneAccountAmongOthers) {
  const std::int64_t anna = folder("anna", "INBOX");
  const std::int64_t bert = folder("bert", "INBOX");
  for (int day = 0; day < 12; ++day) add(bert, std::nullopt, Date{(19723 + day) * kSecondsPerDay});
  add(anna, std::nullopt, Date{19723 * kSecondsPerDay});
  add(anna, std::nullopt, Date{(19723 + 11) * kSecondsPerDay});
  const GapReport report = find();
  ASSERT_EQ(report.accountSilences.size(), 1U);
  EXPECT_EQ(report.accountSilences[0].account, "anna");
  EXPECT_EQ(dayText(report.accountSilences[0].start), "2024-01-02");
  EXPECT_EQ(dayText(report.accountSilences[0].end), "2024-01-11");
  EXPECT_EQ(report.accountSilences[0].workingDays, 8);
  EXPECT_EQ(report.accountSilences[0].otherAccountsMessages, 8);
}

}  // namespace
}  // namespace ambervane
