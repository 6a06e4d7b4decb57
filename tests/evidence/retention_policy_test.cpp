#include "evidence/retention_policy.h"

#include <gtest/gtest.h>

#include <limits>

#include "base/calendar.h"
#include "base/json.h"
#include "evidence/retention_policy_json.h"

namespace ambervane {
namespace {

using enum ComplianceRegime;
using Regimes = std::set<ComplianceRegime>;

Date at(const char* text) { return parseIso8601(text).value(); }

TEST(RetentionPolicy, keepUntilDates) {
  const RetentionClass transient = RetentionClass::transient();
  const std::optional<RetentionClass> none;
  const Regimes ch{swissGeBueV}, de{germanGoBD}, eu{euGDPR}, us{secRule17a4};
  const Regimes both{swissGeBueV, germanGoBD}, chEu{swissGeBueV, euGDPR};
  const struct {
    const char* name;
    Regimes regimes;
    int month;  ///< in which the financial year ends
    std::optional<RetentionClass> ofClass;
    const char* message;
    const char* kept;
  } kCases[] = {
      {"swiss", ch, 12, none, "2024-03-15T08:00:00Z", "2034-12-31T23:59:59Z"},
      {"swissJuneAfter", ch, 6, none, "2024-08-15T08:00:00Z", "2035-06-30T23:59:59Z"},
      {"swissJuneBefore", ch, 6, none, "2024-03-15T08:00:00Z", "2034-06-30T23:59:59Z"},
      {"swissJuneWithin", ch, 6, none, "2024-06-30T20:00:00Z", "2034-06-30T23:59:59Z"},
      // In Zurich it is July already, and at the turn of the year January.
      {"zurichSummer", ch, 6, none, "2024-06-30T22:00:00Z", "2035-06-30T23:59:59Z"},
      {"zurichWinter", ch, 12, none, "2024-12-31T22:59:59Z", "2034-12-31T23:59:59Z"},
      {"zurichNewYear", ch, 12, none, "2024-12-31T23:00:00Z", "2035-12-31T23:59:59Z"},
      {"germanNewYear", de, 12, none, "2024-12-31T23:00:00Z", "2035-12-31T23:59:59Z"},
      {"euNewYear", eu, 12, none, "2024-12-31T23:00:00Z", "2034-12-31T23:59:59Z"},
      {"usNewYear", us, 12, none, "2024-12-31T23:59:59Z", "2034-12-31T23:59:59Z"},
      {"germanIgnoresMonth", de, 6, none, "2024-08-15T08:00:00Z", "2034-12-31T23:59:59Z"},
      {"bothFinancialLater", both, 6, none, "2024-08-15T08:00:00Z", "2035-06-30T23:59:59Z"},
      {"bothCalendarLater", both, 6, none, "2024-03-15T08:00:00Z", "2034-12-31T23:59:59Z"},
      {"swissAndEu", chEu, 6, none, "2024-03-15T08:00:00Z", "2034-06-30T23:59:59Z"},
      {"monthOutOfRange", ch, 13, none, "2024-08-15T08:00:00Z", "2034-12-31T23:59:59Z"},
      {"februaryToLeap", ch, 2, none, "2022-01-15T08:00:00Z", "2032-02-29T23:59:59Z"},
      {"februaryFromLeap", ch, 2, none, "2024-02-29T08:00:00Z", "2034-02-28T23:59:59Z"},
      {"transient", ch, 6, transient, "2024-03-15T08:01:02Z", "2025-03-15T08:01:02Z"},
      {"transientLeapDay", ch, 12, transient, "2024-02-29T08:01:02Z", "2025-02-28T08:01:02Z"},
      {"before1970", ch, 12, none, "1969-07-20T20:17:40Z", "1979-12-31T23:59:59Z"},
      {"futureCountsFromIngest", ch, 12, none, "2099-05-05T00:00:00Z", "2036-12-31T23:59:59Z"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    RetentionPolicy policy(c.regimes);
    policy.financialYearEndMonth = c.month;
    const auto kept = policy.expiryDate(at(c.message), at("2026-01-01T00:00:00Z"), c.ofClass);
    ASSERT_TRUE(kept);
    EXPECT_EQ(iso8601(*kept), c.kept);
  }
}

TEST(RetentionPolicy, yearEndingInDecemberIsTheCalendarYear) {
  const RetentionPolicy policy({swissGeBueV, germanGoBD});
  EXPECT_EQ(policy.periodStart(at("2024-08-15T00:00:00Z"), RetentionClass::businessCorrespondence())
                .basis,
            PeriodBasis::calendarYear);
}

TEST(RetentionPolicy, yearsBeyondTheCalendar) {
  const RetentionPolicy policy;
  const Date date = at("2024-03-15T08:00:00Z");
  for (const bool yearEnd : {false, true}) {
    const auto kept = [&](const char* identifier, int years) {
      return policy.expiryDate(date, date, RetentionClass{identifier, "", years, yearEnd});
    };
    EXPECT_TRUE(kept("custom", 7975));
    EXPECT_EQ(kept("custom", 7976), std::nullopt);
    EXPECT_EQ(kept("custom", std::numeric_limits<int>::max()), std::nullopt);
    EXPECT_EQ(kept("transient", std::numeric_limits<int>::min()), kept("transient", 0));
  }
}

TEST(RetentionPolicy, classification) {
  using Texts = std::vector<std::string>;
  const auto rule = [](const char* toClass, Texts folders, Texts participants, Texts subject,
                       bool attachment = false, bool enabled = true) {
    return RetentionRule{"id",
                         "name",
                         toClass,
                         enabled,
                         std::move(participants),
                         std::move(folders),
                         std::move(subject),
                         attachment};
  };
  RetentionPolicy policy;
  policy.rules = {
      rule("transient", {"Invoices"}, {}, {}, false, false),  // not enabled
      rule("transient", {}, {}, {}),                          // empty
      rule("transient", {""}, {}, {}),                        // a criterion left blank
      rule("no such class", {"Invoices"}, {}, {}),
      rule("personnel", {"Staff"}, {"hr@", "müller"}, {"STRASSE"}),
      rule("accounting", {"Invoices", "rechnungen"}, {}, {}, true),
      rule("contract", {}, {}, {"vertrag"}),
      rule("transient", {}, {}, {"Vertrag"}),  // never reached
  };
  const struct {
    const char* name;
    const char* participants;
    const char* folder;
    const char* subject;
    bool attachment;
    const char* identifier;
  } kCases[] = {
      {"noRule", "a@b", "INBOX", "Hello", true, "business"},
      {"attachment", "a@b", "Work/INVOICES/2024", "Hello", true, "accounting"},
      {"secondFolder", "a@b", "Rechnungen", "Hello", true, "accounting"},
      {"noAttachment", "a@b", "Invoices", "Hello", false, "business"},
      {"firstMatchWins", "a@b", "INBOX", "Arbeitsvertrag", false, "contract"},
      {"allCriteria", "Eva MÜLLER <e@x>", "staff/x", "Bahnhofstraße 1", false, "personnel"},
      {"otherParticipant", "HR@x", "staff", "Strasse", false, "personnel"},
      {"oneMissing", "Eva Müller", "INBOX", "Strasse", false, "business"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(policy.classify(c.participants, c.folder, c.subject, c.attachment).identifier,
              c.identifier);
  }
  EXPECT_EQ(policy.rules[1].summary(), "no criteria — matches nothing");
  EXPECT_EQ(policy.rules[4].summary(),
            "mailbox contains Staff, anyone matching hr@ or müller, subject contains STRASSE");
  EXPECT_EQ(policy.rules[5].summary(),
            "mailbox contains Invoices or rechnungen, has an attachment");
}

TEST(RetentionPolicy, years) {
  RetentionPolicy policy({euGDPR, secRule17a4});
  policy.defaultClass = {"short", "Short", 2, true};
  EXPECT_EQ(policy.minimumYears(), 6);
  EXPECT_EQ(policy.years(), 6);
  EXPECT_EQ(policy.years(RetentionClass{"own", "", 8, true}), 8);
  EXPECT_EQ(policy.years(RetentionClass::transient()), 1);
  policy.defaultClass = RetentionClass::transient();
  EXPECT_EQ(policy.years(), 1) << "as the default, transient still keeps its own period";
}

TEST(RetentionPolicy, demandsOfTheRegimes) {
  const struct {
    const char* name;
    Regimes regimes;
    bool worm, shredding;
  } kCases[] = {
      {"none", {}, false, false},
      {"swiss", {swissGeBueV}, true, false},
      {"eu", {euGDPR}, false, true},
      {"usAndEu", {secRule17a4, euGDPR}, true, true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const RetentionPolicy policy(c.regimes);
    EXPECT_EQ(policy.wormEnforcement, c.worm);
    EXPECT_EQ(policy.cryptoShreddingEnabled, c.shredding);
    nlohmann::json json = toJson(policy);
    json.erase("wormEnforcement");
    json["cryptoShreddingEnabled"] = nullptr;
    EXPECT_EQ(retentionPolicyFromJson(json), policy) << "the same when the manifest is silent";
  }
}

TEST(RetentionPolicy, wordsForPeople) {
  const struct {
    const char* name;
    Regimes regimes;
    int month;
    const char* counting;
  } kCases[] = {
      {"swiss", {swissGeBueV}, 6, "counted from the end of the financial year (ends in June)"},
      {"outOfRange",
       {swissGeBueV},
       99,
       "counted from the end of the financial year (ends in December)"},
      {"german", {germanGoBD}, 6, "counted from the end of the calendar year"},
      {"bothDecember",
       {swissGeBueV, germanGoBD},
       12,
       "counted from the end of the year (financial and calendar year both end in December)"},
      {"bothJanuary",
       {swissGeBueV, secRule17a4},
       1,
       "counted from the end of the financial year (ends in January) or of the calendar year, "
       "whichever is later"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    RetentionPolicy policy(c.regimes);
    policy.financialYearEndMonth = c.month;
    EXPECT_EQ(policy.countingDescription(), c.counting);
  }
  EXPECT_EQ(RetentionPolicy({swissGeBueV, euGDPR}).summary(),
            (std::vector<std::string>{
                "Regimes: Switzerland — GeBüV / OR 957–958f, EU — GDPR (Art. 17 erasure)",
                "Kept at least 10 years, counted from the end of the financial year (ends in "
                "December)",
                "Disposal: Report only — never delete anything",
                "Default class: Business correspondence"}));
}

TEST(RetentionPolicy, changesThatMoveDates) {
  RetentionPolicy changed;
  changed.rules.emplace_back();
  EXPECT_FALSE(changed.movesRetentionDates(RetentionPolicy()));
  changed.financialYearEndMonth = 6;
  EXPECT_TRUE(changed.movesRetentionDates(RetentionPolicy()));
}

TEST(RetentionPolicyJson, literalText) {
  RetentionPolicy policy({euGDPR, swissGeBueV});
  policy.classes = {{"transient", "Kurz", 1, false}};
  policy.disposalPolicy = DisposalPolicy::manualApproval;
  policy.rules = {{"7", "Rule", "transient", true, {"a@b"}, {"In/Out"}, {}, true}};
  policy.financialYearEndMonth = 6;
  const std::string text =
      R"({"classes":[{"fromEndOfBusinessYear":false,"identifier":"transient","label":"Kurz",)"
      R"("years":1}],"cryptoShreddingEnabled":true,"defaultClass":{"fromEndOfBusinessYear":true,)"
      R"("identifier":"business","label":"Business correspondence","years":10},)"
      R"("disposalPolicy":"manualApproval","financialYearEndMonth":6,"indexAttachmentText":true,)"
      R"("regimes":["ch-gebuev","eu-gdpr"],"rules":[{"classIdentifier":"transient",)"
      R"("enabled":true,"folders":["In/Out"],"id":"7","name":"Rule","participants":["a@b"],)"
      R"("requiresAttachment":true,"subjectContains":[]}],"sealEveryEntries":1000,)"
      R"("wormEnforcement":true})";
  EXPECT_EQ(toJson(policy).dump(), text);
  EXPECT_EQ(retentionPolicyFromJson(nlohmann::json::parse(text)), policy);
  EXPECT_EQ(retentionPolicyFromJson(nlohmann::json::object()), RetentionPolicy());
}

TEST(RetentionPolicyJson, refusesWhatItDoesNotUnderstand) {
  const struct {
    const char* name;
    const char* key;
    const char* value;
  } kCases[] = {
      {"regimesText", "regimes", R"("ch-gebuev")"},
      {"regimesObject", "regimes", R"({"a":"ch-gebuev"})"},
      {"regimeUnknown", "regimes", R"(["ch-gebuev","xx"])"},
      {"disposalUnknown", "disposalPolicy", R"("always")"},
      {"classWithoutYears", "defaultClass",
       R"({"identifier":"a","label":"A","fromEndOfBusinessYear":true})"},
      {"yearsFraction", "defaultClass",
       R"({"identifier":"a","label":"A","years":9.5,"fromEndOfBusinessYear":true})"},
      {"ruleWithoutLists", "rules", R"([{"id":"1","name":"n","classIdentifier":"c"}])"},
      {"sealTooLarge", "sealEveryEntries", "18446744073709551615"},
      {"sealBeyondInt", "sealEveryEntries", "2147483648"},
      {"flagNumber", "wormEnforcement", "1"},
      {"monthText", "financialYearEndMonth", R"("6")"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    nlohmann::json json = toJson(RetentionPolicy());
    json[c.key] = nlohmann::json::parse(c.value);
    EXPECT_THROW(retentionPolicyFromJson(json), JsonError);
  }
  EXPECT_THROW(retentionPolicyFromJson(nlohmann::json::array()), JsonError);
}

}  // namespace
}  // namespace ambervane
