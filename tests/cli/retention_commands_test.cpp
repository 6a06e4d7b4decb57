#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "evidence/retention_policy.h"
#include "store/mail_archive.h"
#include "tests/cli/command_line.h"

namespace ambervane {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using Words = std::vector<std::string>;

class RetentionCommands : public CommandLine {
 protected:
  RetentionCommands() {
    run({"create", kept(), "--regimes", "ch-gebuev,eu-gdpr"});
    write("old/one.eml",
          "Date: 1 Feb 2010 10:00:00 +0000\r\nFrom: anna@example.com\r\nSubject: Alt\r\n\r\nx\r\n");
    write("old/two.eml", "Date: 2 Feb 2010 10:00:00 +0000\r\nFrom: bert@example.com\r\nSubject: " +
                             std::string(60, 'z') + "\r\n\r\nx\r\n");
  }
  std::string kept() const { return at("kept.ambervane"); }
  Result command(const std::string& name, Words words) {
    words.insert(words.begin(), {name, kept()});
    return run(words);
  }
  Result policy(Words words) { return command("policy", std::move(words)); }
  static std::filesystem::path made(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder);
    return folder;
  }
  const std::filesystem::path old_ = made(folder_ / "old");
};

TEST_F(RetentionCommands, refusals) {
  const struct {
    const char* command;
    Words words;
    const char* text;
  } kCases[] = {
      {"hold", {}, "usage: ambervane hold <archive> list|place|release"},
      {"hold", {"lift"}, "unknown hold subcommand"},
      {"hold", {"place", "--reason", "r"}, "--name <n> is required"},
      {"hold", {"release", "--id", "1"}, "--id <holdID> and --reason <r> are required"},
      {"hold", {"release", "--id", "1", "--reason", "r"}, "There is no legal hold 1"},
      {"policy",
       {"--remove-class", "business", "--regimes", "xx"},
       "no recognised regimes in --regimes"},
      {"policy",
       {"--set-class", "a:A:ten"},
       "--set-class expects identifier:Label:years[:endOfYear|exactDate]"},
      {"policy",
       {"--remove-class", "business", "--default-class", "contract"},
       "cannot remove the default class; set another default first"},
      {"policy",
       {"--add-rule", "n:contract:attachment=no"},
       "the rule has no criteria, so it would match nothing"},
      {"policy",
       {"--disposal", "manualApproval", "--reason", " ", "--second-copy", "vault"},
       "--reason is required when changing the policy; it goes into the audit chain"},
  };
  const std::string before = policy({}).out;
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    const Result result = command(c.command, c.words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "") << "nothing is recorded before all is checked";
    EXPECT_EQ(result.err, "error: " + std::string(c.text) + "\n");
  }
  EXPECT_EQ(policy({}).out, before);
}

TEST_F(RetentionCommands, policyPrintedAndChanged) {
  EXPECT_EQ(policy({}).out,
            "Regimes        : Switzerland — GeBüV / OR 957–958f, EU — GDPR (Art. 17 erasure)\n"
            "Minimum        : 10 years, counted from the end of the financial year (ends in "
            "December)\n"
            "Disposal       : Report only — never delete anything\n"
            "                 Expired messages are listed so you can see what is past its period. "
            "Nothing is ever deleted, by this app or on a schedule.\n"
            "Default class  : Business correspondence\n"
            "Classes\n"
            "  business  10y  Business correspondence  *\n"
            "  accounting  10y  Accounting voucher\n"
            "  contract  10y  Contract\n"
            "  personnel  10y  Personnel record\n"
            "  transient  1y  Transient / no statutory duty  from the message date\n"
            "Rules          : none — every message gets the default class\n");
  command("import", {at("old")});
  EXPECT_EQ(policy({"--second-copy", "vault", "--by", "Eva"}).out, "second copy: vault\n");
  const Result changed = policy({"--set-class", "lab:Lab book:30:EXACTDATE", "--default-class",
                                 "lab", "--add-rule", "Ads:transient:from=ads@,subject=Sale",
                                 "--financial-year-end", "6", "--reason", "audit"});
  EXPECT_THAT(changed.out,
              EndsWith("Keep-until dates worked out again: 2 moved. Nothing was deleted.\n"));
  const std::string now = policy({}).out;
  EXPECT_THAT(now, HasSubstr("Minimum        : 30 years, counted from the end of the financial "
                             "year (ends in June)\n"));
  EXPECT_THAT(now, HasSubstr("  lab  30y  Lab book  from the message date  *\n"));
  EXPECT_THAT(now, HasSubstr("  1. Ads → transient: anyone matching ads@, subject contains Sale\n"
                             "Run `ambervane reclassify <archive>` to apply rules to messages "
                             "already archived.\n"));
  EXPECT_THAT(policy({"--regimes", "de-gobd", "--remove-rule", "Ads", "--reason", "x"}).out,
              HasSubstr("Policy changed: regimes=de-gobd; removed rule Ads\n"));
  const Result reclassified = command("reclassify", {});
  EXPECT_EQ(reclassified.out, "  lab  2\nReclassified. Nothing was deleted.\n");
  // The archive of the base is kept under Swiss law alone.
  EXPECT_THAT(run({"policy", archive(), "--regimes", "eu-gdpr", "--reason", "x"}).out,
              HasSubstr("These regimes ask for a key for each message, which is decided when an "
                        "archive is made; this one stays without.\n"));
}

TEST_F(RetentionCommands, holdAndDispose) {
  command("import", {at("old")});
  const Result placed = command("hold", {"place", "--name", "Matter\n1", "--reason", "Klage",
                                         "--custodian", "Eva", "--participant", "bert"});
  EXPECT_EQ(placed.out, "Placed hold Matter\\n1 over 1 messages\n");
  const std::string list = command("hold", {"list"}).out;
  std::smatch line;
  ASSERT_TRUE(
      std::regex_match(list, line, std::regex("ACTIVE  ([0-9A-F-]+)  Matter\\\\n1 — Klage: Eva\n")))
      << list;
  EXPECT_EQ(command("retention", {}).out,
            "Disposal setting     : Report only — never delete anything\n"
            "Past their period    : 1\n"
            "Held back (legal hold): 1\n"
            "1        expired 2020-12-31  [business]  Alt\n"
            "Nothing was deleted. Nothing is ever deleted on a schedule.\n"
            "This archive is set to report only. Change it with:\n"
            "  ambervane policy <archive> --disposal manualApproval --reason \"…\"\n");
  policy({"--disposal", "manualApproval", "--reason", "x"});
  const Words approved = {"--dispose", "--approved-by", "Eva", "--reason", "over", "--confirm"};
  const auto dispose = [&](const char* phrase) {
    Words words = approved;
    words.emplace_back(phrase);
    return command("retention", words);
  };
  EXPECT_EQ(dispose("dispose").err, "error: Type DISPOSE exactly to confirm.\n");
  EXPECT_THAT(dispose("DISPOSE").out, EndsWith("Erased               : 1\n"
                                               "Skipped, on hold     : 0\n"
                                               "Skipped, not expired : 0\n"
                                               "Skipped, already gone: 0\n"));
  EXPECT_EQ(command("hold", {"release", "--id", line[1], "--reason", "over"}).out,
            "Released " + line[1].str() + "\n");
  EXPECT_THAT(command("hold", {"list"}).out, testing::StartsWith("LIFTED  "));
  EXPECT_THAT(command("retention", {}).out,
              HasSubstr("2        expired 2020-12-31  [business]  " + std::string(52, 'z') + "\n"));
  EXPECT_EQ(command("verify", {"--deep"}).status, 0);
}

}  // namespace
}  // namespace ambervane
