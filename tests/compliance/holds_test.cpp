#include "compliance/holds.h"

#include <gtest/gtest.h>

#include "store/catalog_holds.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

LegalHold hold(const std::string& id, HoldCriteria criteria) {
  return {id, "Matter " + id, "Klage", "Eva", kTestTime, std::nullopt, std::move(criteria)};
}

/// A message whose recipients are named far behind what the header index keeps.
Bytes crowdedMail(int number) {
  std::string to = "To: ";
  for (int i = 0; i < 60; ++i) to += "p" + std::to_string(i) + "@example.com,\r\n ";
  return to + "=?utf-8?q?J=C3=B6rg_Letzter?= <last@example.com>\r\n" + plainMail(number);
}

/// The messages under a hold, by row.
std::vector<std::int64_t> held(TestArchive& archive, const std::string& id) {
  std::vector<std::int64_t> ids;
  for (const Row& row : archive->catalog().database().query(
           "SELECT message_id AS m FROM message_hold WHERE hold_id = ? ORDER BY 1", {id})) {
    ids.push_back(row.integer("m"));
  }
  return ids;
}

using IDs = std::vector<std::int64_t>;

/// Before a message comes in or after, from a pack, a block or under a key: what a hold covers is
/// the same.
TEST(Holds, coverTheSameBeforeAndAfter) {
  const struct {
    const char* name;
    HoldCriteria criteria;
    IDs covered;
  } kCases[] = {
      {"participants", {.participants = {"JÖRG letzter"}}, {2}},
      {"address", {.participants = {"last@example"}}, {2}},
      {"folder", {.folders = {"matter"}}, {3, 4}},
      {"terms", {.searchTerms = {"eimnis"}}, {1}},
      {"subject", {.searchTerms = {"offer"}}, {4}},
      {"dates", {.dateFrom = Date{1707123600}, .dateTo = Date{1707123600}}, {1, 2, 3}},
      {"nothing", {}, {}},
  };
  RetentionPolicy encrypted({ComplianceRegime::euGDPR});
  for (const auto effort : {CompressionEffort::balanced, CompressionEffort::smallest}) {
    for (const RetentionPolicy& policy : {RetentionPolicy(), encrypted}) {
      TestArchive archive(policy, effort);
      const auto fill = [&archive] {
        archive.ingest({plainMail(1, "Gruss", "Das Geheimnis."), crowdedMail(2)});
        archive.ingest({plainMail(3), mailWithFiles(4, {{"a.pdf", noise(9000)}})}, "The Matter/x");
      };
      for (const auto& c : kCases)
        placeHold(*archive, hold(std::string("before ") + c.name, c.criteria));
      fill();
      for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const std::string after = std::string("after ") + c.name;
        EXPECT_EQ(placeHold(*archive, hold(after, c.criteria)).messages,
                  static_cast<std::int64_t>(c.covered.size()));
        EXPECT_EQ(held(archive, std::string("before ") + c.name), c.covered);
        EXPECT_EQ(held(archive, after), c.covered);
      }
    }
  }
}

TEST(Holds, oneMessageInAFurtherFolder) {
  TestArchive archive;
  archive.ingest({plainMail(1), plainMail(2)});
  placeHold(*archive, hold("1", {.folders = {"matter"}, .searchTerms = {"unterwegs"}}));
  EXPECT_EQ(held(archive, "1"), IDs{});
  archive.ingest({plainMail(2)}, "Matter");
  EXPECT_EQ(held(archive, "1"), IDs{2});
}

TEST(Holds, releaseLeavesTheRecordAndOtherHolds) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  placeHold(*archive, hold("1", {.participants = {"anna"}, .dateFrom = Date{1000}}));
  placeHold(*archive, hold("2", {.searchTerms = {"Ware"}}));
  CatalogHolds catalog(archive->catalog());
  releaseHold(*archive, "1", "Vergleich");
  EXPECT_TRUE(catalog.isHeld(1)) << "the other one stands";
  releaseHold(*archive, "2", "Vergleich");
  EXPECT_FALSE(catalog.isHeld(1));
  EXPECT_EQ(catalog.hold("1")->releasedAt, kTestTime);
  EXPECT_EQ(catalog.holds(false).size(), 2U);
  EXPECT_TRUE(catalog.holds(true).empty());
  EXPECT_THROW(releaseHold(*archive, "1", "again"), HoldError);
  EXPECT_THROW(releaseHold(*archive, "3", "x"), HoldError);

  const AuditEntry placed = archive.entries(AuditAction::legalHoldPlaced).front();
  EXPECT_EQ(placed.subject, "1");
  EXPECT_EQ(placed.details.at("messages"), "1");
  EXPECT_EQ(placed.details.at("criteria"), "anyone matching anna, from 1970-01-01T00:16:40Z");
  EXPECT_EQ(holdCriteriaFromJson(placed.details.at("definition")).participants.front(), "anna");
  EXPECT_EQ(archive.entries(AuditAction::legalHoldReleased).size(), 2U);
}

}  // namespace
}  // namespace ambervane
