#include "evidence/hold.h"

#include <gtest/gtest.h>

#include "base/json.h"

namespace ambervane {
namespace {

constexpr Date kDay{1000};

HoldSubject subject(std::optional<Date> date = kDay, bool isReadable = true) {
  const auto text = [isReadable](const char* words) {
    return [isReadable, words] {
      return isReadable ? std::optional<std::string>(words) : std::nullopt;
    };
  };
  return HoldSubject({.hash = "ab12",
                      .folders = {"INBOX", "Projekte/STRASSE 7"},
                      .date = date,
                      .participants = text("Eva MÜLLER <eva@example.ch>"),
                      .text = text("Offerte K7\nDie Kühlung läuft.")});
}

TEST(HoldSubject, matching) {
  const struct {
    const char* name;
    HoldCriteria criteria;
    bool matches;
  } kCases[] = {
      {"empty", {}, false},
      {"participant", {.participants = {"nobody", "müller"}}, true},
      {"participantPart", {.participants = {"EVA@EXAMPLE"}}, true},
      {"noParticipant", {.participants = {"nobody"}}, false},
      {"decomposed", {.participants = {"Mu\xCC\x88ller"}}, true},
      {"blankEntry", {.participants = {"", " "}}, false},
      {"folder", {.folders = {"Straße"}}, true},
      {"noFolder", {.folders = {"Archive"}}, false},
      {"from", {.dateFrom = kDay}, true},
      {"fromLater", {.dateFrom = Date{1000.5}}, false},
      {"to", {.dateTo = kDay}, true},
      {"toEarlier", {.dateTo = Date{999}}, false},
      {"term", {.searchTerms = {"absent", "kühl"}}, true},
      {"subject", {.searchTerms = {"offerte"}}, true},
      {"all", {{"eva"}, {"inbox"}, kDay, kDay, {"k7"}, {}}, true},
      {"oneMissing", {{"eva"}, {"inbox"}, kDay, kDay, {"k8"}, {}}, false},
      {"pinned", {.pinnedMessageHashes = {"AB12"}}, true},
      {"pinnedWhateverElse", {.folders = {"Archive"}, .pinnedMessageHashes = {"ab12"}}, true},
      {"otherPinned", {.pinnedMessageHashes = {"ab1"}}, false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    HoldSubject message = subject();
    EXPECT_EQ(message.matches(c.criteria), c.matches);
    EXPECT_EQ(holdCriteriaFromJson(holdCriteriaJson(c.criteria)), c.criteria);
  }
  EXPECT_FALSE(subject(std::nullopt).matches({.dateFrom = Date{0}})) << "no date is no match";
  EXPECT_FALSE(subject(std::nullopt).matches({.dateTo = kDay}));
}

TEST(HoldSubject, whatCannotBeReadIsHeld) {
  EXPECT_TRUE(subject(kDay, false).matches({.participants = {"x"}, .searchTerms = {"y"}}));
  EXPECT_FALSE(subject(kDay, false).matches({.folders = {"Archive"}, .searchTerms = {"y"}}));
  EXPECT_FALSE(subject(kDay, false).matches({.searchTerms = {" "}}));
}

TEST(LegalHold, json) {
  const LegalHold hold{"1",       "Matter \"7\"",        "Klage", "Eva", {1772360130.25},
                       Date{2e9}, {.dateTo = Date{1000}}};
  const std::string text =
      R"({"createdAt":1772360130.25,"criteria":{"dateTo":1000.0,"folders":[],"participants":[],)"
      R"("pinnedMessageHashes":[],"searchTerms":[]},"custodian":"Eva","id":"1",)"
      R"("name":"Matter \"7\"","reason":"Klage","releasedAt":2000000000.0})";
  EXPECT_EQ(legalHoldJson(hold), text);
  EXPECT_EQ(legalHoldFromJson(text), hold);
  EXPECT_THROW(legalHoldFromJson("{}"), JsonError);
}

}  // namespace
}  // namespace ambervane
