#include "compliance/erasure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "compliance/holdings.h"
#include "store/archive_error.h"
#include "store/catalog_holds.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

const RetentionPolicy& erasing() {
  static const RetentionPolicy policy({ComplianceRegime::euGDPR});
  return policy;
}

std::vector<Bytes> mails(int count) {
  std::vector<Bytes> mails;
  for (int i = 1; i <= count; ++i) mails.push_back(plainMail(i));
  return mails;
}

void hold(MailArchive& archive, std::int64_t id) {
  CatalogHolds holds(archive.catalog());
  LegalHold hold;
  hold.id = "h1";
  hold.name = "Matter";
  hold.createdAt = kTestTime;
  holds.save(hold);
  holds.link(id, "h1");
}

/// What `action` says when it refuses; empty when it does not.
std::string refusal(const std::function<void()>& action) {
  try {
    action();
    return "";
  } catch (const TranslatableError& error) {
    return error.what();
  }
}

DisposalApproval asked(std::vector<std::int64_t> ids) {
  return {std::move(ids), " Anna \n", "asked in writing", "DISPOSE\n"};
}

constexpr const char* kUnencrypted =
    "This archive stores messages unencrypted, so there is no key to destroy. Disposal would mean "
    "rewriting WORM media, which the archive will not do.";

TEST(Erasure, refusesBeforeAnythingIsWritten) {
  TestArchive plain;
  plain.ingest(mails(2));
  TestArchive archive(erasing());
  archive.ingest(mails(3));
  hold(*archive, 2);
  archive->catalog().database().run("UPDATE message SET record_flags = 1 WHERE id = 3");
  const auto erase = [](TestArchive& from, std::int64_t id) {
    return [&from, id] { eraseMessage(*from, id, "r", "anna"); };
  };
  const auto approve = [](TestArchive& from, const std::function<void(DisposalApproval&)>& change) {
    return [&from, change] {
      DisposalApproval given = asked({1});
      change(given);
      eraseApproved(*from, given);
    };
  };
  const struct {
    const char* name;
    std::function<void()> action;
    const char* words;
  } cases[] = {
      {"no keys", erase(plain, 1), "The archive is open read-only"},
      {"no keys and no such message", erase(plain, 9), "The archive is open read-only"},
      {"held", erase(archive, 2), "Message 2 is under an active legal hold"},
      {"not there", erase(archive, 9), "Message 9 is not in the catalog"},
      {"stored before there were keys", erase(archive, 3), kUnencrypted},
      {"a list, no keys", approve(plain, [](auto& a) { a.confirmation = ""; }), kUnencrypted},
      {"lower case",
       approve(archive, [](auto& a) { a.confirmation = "dispose", a.approvedBy = ""; }),
       "Type DISPOSE exactly to confirm."},
      {"nobody", approve(archive, [](auto& a) { a.approvedBy = " \r\n", a.reason = ""; }),
       "Record who is approving this disposal."},
      {"no reason", approve(archive, [](auto& a) { a.reason = "\t", a.messageIDs = {}; }),
       "Record why these messages are being disposed of."},
      {"nothing", approve(archive, [](auto& a) { a.messageIDs = {}; }),
       "No messages were approved for disposal."},
      {"one of them unencrypted",
       approve(archive,
               [](auto& a) {
                 a.messageIDs = {1, 3};
               }),
       kUnencrypted},
  };
  const std::int64_t entries = archive->journal().count();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(refusal(c.action), c.words);
  }
  EXPECT_EQ(archive->journal().count(), entries);
  EXPECT_EQ(archive->keys().erasureCount(), 0);
  archive.reopen(OpenMode::readOnly);
  EXPECT_EQ(refusal(erase(archive, 2)), "The archive is open read-only");
  EXPECT_EQ(refusal(approve(archive, [](auto& a) { a.confirmation = ""; })),
            "The archive is open read-only");
}

TEST(Erasure, ofOneMessageIsJournalledAndSealed) {
  TestArchive archive(erasing());
  archive.ingest({mailWithFiles(1, {{"a.bin", noise(5000)}}), plainMail(2)});
  const auto seals = archive->sealer().allSeals().size();
  eraseMessage(*archive, 1, "asked", "Bert");
  const auto entries = archive.entries(AuditAction::messageErased);
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].subject, archive->catalog().message(1)->sha256);
  EXPECT_EQ(entries[0].details, (std::map<std::string, std::string>{
                                    {"id", "1"},
                                    {"reason", "asked"},
                                    {"requester", "Bert"},
                                    {"method", "crypto-shredding (AES-256-GCM key destroyed)"},
                                    {"attachments_erased", "1"}}));
  const auto seal = archive->sealer().latestSeal();
  EXPECT_EQ(archive->sealer().allSeals().size(), seals + 1);
  EXPECT_EQ(seal->chainHead, entries[0].entryHash);
  EXPECT_EQ(seal->messageCount, 2);
}

TEST(Erasure, aReviewSortsAndErasesNothing) {
  TestArchive archive(erasing());
  archive.ingest(mails(6));
  eraseMessage(*archive, 1, "r", "anna");
  hold(*archive, 2);
  SQLiteDatabase& database = archive->catalog().database();
  database.run("UPDATE message SET expires_at = ? WHERE id IN (3, 4)", {kTestTime});
  database.run("UPDATE message SET expires_at = ? WHERE id = 5", {Date{kTestTime.seconds + 1}});
  database.run("UPDATE message SET expires_at = NULL WHERE id = 6");
  SearchQuery query;
  query.from = "anna@example.com";
  query.limit = 1;
  const ErasureReview review = reviewErasure(*archive, query, kTestTime);
  EXPECT_EQ(review.erasableCount, 4);
  EXPECT_THAT(review.erasableIDs, testing::UnorderedElementsAre(3, 4, 5, 6));
  EXPECT_EQ(review.heldBackCount, 1);
  EXPECT_EQ(review.heldBack.at(0).id, 2);
  EXPECT_EQ(review.alreadyErasedCount, 1);
  EXPECT_EQ(review.alreadyErased.at(0).id, 1);
  EXPECT_EQ(review.withinRetentionCount, 1);
  const auto entry = archive.entries(AuditAction::searchPerformed).back();
  EXPECT_EQ(entry.subject, "erasure review");
  EXPECT_EQ(entry.details, (std::map<std::string, std::string>{{"action", "review"},
                                                               {"matches", "4"},
                                                               {"held_back", "1"},
                                                               {"already_erased", "1"},
                                                               {"within_retention", "1"},
                                                               {"deleted", "0"}}));
  EXPECT_EQ(archive->catalog().stats().erased, 1);
}

TEST(Erasure, ofAnApprovedListSkipsWhatChangedMeanwhile) {
  TestArchive archive(erasing());
  archive.ingest(mails(6));
  eraseMessage(*archive, 1, "r", "anna");
  hold(*archive, 2);
  const DisposalResult result = eraseApproved(*archive, asked({1, 2, 3, 4, 3, 99}));
  EXPECT_EQ(result, (DisposalResult{.erased = 2, .skippedOnHold = 1, .skippedAlreadyErased = 3}));
  for (const std::int64_t id : {3, 4}) {
    EXPECT_EQ(archive->catalog().message(id)->erasureReason,
              "data subject request approved by Anna: asked in writing");
    EXPECT_EQ(archive->keys().erasure(id)->requester, "Anna");
  }
  EXPECT_FALSE(archive->catalog().message(2)->erased);
  const auto entries = archive.entries(AuditAction::messageErased);
  ASSERT_EQ(entries.size(), 3U);
  EXPECT_EQ(entries[1].subject, "data subject request");
  EXPECT_EQ(entries[1].details, (std::map<std::string, std::string>{{"action", "erasure approved"},
                                                                    {"approved_by", "Anna"},
                                                                    {"reason", "asked in writing"},
                                                                    {"approved_count", "6"}}));
  EXPECT_EQ(entries[2].details,
            (std::map<std::string, std::string>{{"action", "erasure finished"},
                                                {"approved_by", "Anna"},
                                                {"erased", "2"},
                                                {"skipped_on_hold", "1"},
                                                {"skipped_already_erased", "3"}}));
  EXPECT_EQ(archive->sealer().latestSeal()->chainHead, entries[2].entryHash);
}

TEST(Erasure, staysAccountedFor) {
  TestArchive archive(erasing());
  auto all = mails(5);
  all.push_back(mailWithFiles(10, {{"both.bin", noise(5000)}}));
  all.push_back(mailWithFiles(11, {{"both.bin", noise(5000)}}));
  archive.ingest(std::move(all));
  const auto faults = [&archive] {
    return compareHoldings(*archive, JournalRecord(archive->journal())).faults.size();
  };
  eraseMessage(*archive, 6, "r", "anna");
  EXPECT_EQ(faults(), 0U);
  eraseMessage(*archive, 6, "again", "anna");
  eraseApproved(*archive, asked({1, 2, 7}));
  EXPECT_EQ(faults(), 0U);
  // Killed between key and row: the opening completes it and names the message.
  archive->keys().shred(3, "interrupted", "carla");
  archive.drop();
  archive.reopen();
  EXPECT_EQ(archive->catalog().message(3)->erasureReason, "interrupted");
  const auto entry = archive.entries(AuditAction::messageErased).back();
  EXPECT_EQ(entry.subject, archive->catalog().message(3)->sha256);
  EXPECT_EQ(entry.details.at("requester"), "carla");
  EXPECT_EQ(archive->sealer().latestSeal()->chainHead, entry.entryHash);
  EXPECT_EQ(faults(), 0U);
}

TEST(Erasure, doesNotStrikeAMessageThatARebuildGaveTheIdentifier) {
  TestArchive archive(erasing());
  archive.ingest(mails(3));
  eraseMessage(*archive, 1, "r", "anna");
  SQLiteDatabase& database = archive->catalog().database();
  database.execute("PRAGMA foreign_keys=OFF");
  database.run("DELETE FROM message WHERE id = 1");
  database.run("UPDATE message SET id = 1, record_flags = 1 WHERE id = 3");
  archive.close();
  archive.reopen();
  EXPECT_FALSE(archive->catalog().message(1)->erased);
}

}  // namespace
}  // namespace ambervane
