#include <gmock/gmock.h>

#include "base/digest.h"
#include "base/file.h"
#include "tests/cli/command_line.h"

namespace ambervane {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class VerifyCommand : public CommandLine {
 protected:
  VerifyCommand() { import("mails/one.eml"); }
  void damagePack() const {
    const auto pack = folder_ / "a.ambervane/packs/00000001.pack";
    Bytes bytes = readFile(pack);
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    writeFileAtomically(pack, bytes);
  }
};

TEST_F(VerifyCommand, saysWhatItFound) {
  const Result sound = run({"verify", archive(), "--deep"});
  EXPECT_EQ(sound.status, 0);
  EXPECT_EQ(sound.err, "");
  EXPECT_THAT(sound.out, StartsWith("Archive:        Büro ["));
  EXPECT_THAT(sound.out, HasSubstr("\n  [PASS] Message content hashes: 1 messages reassembled"));
  EXPECT_THAT(sound.out, EndsWith("RESULT: all checks passed; 6 requirements outstanding — see "
                                  "OPEN above.\n"));
  EXPECT_THAT(run({"verify", archive(), "--language", "de"}).out, StartsWith("Archiv:"));

  damagePack();
  EXPECT_EQ(run({"verify", archive()}).status, 0) << "the pack being written is read in depth only";
  const Result damaged = run({"verify", archive(), "--deep"}, true);
  EXPECT_EQ(damaged.status, 1);
  EXPECT_THAT(damaged.out, HasSubstr("\n  [FAIL] Message content hashes: 1 of 1 messages no longer "
                                     "match their stored digest\n"));
  EXPECT_THAT(damaged.out, EndsWith("RESULT: at least one check failed — see above.\n"));
  EXPECT_THAT(damaged.err,
              StartsWith("\r  Counting the messages\x1b[K\r  Verifying the audit chain"));
  EXPECT_THAT(damaged.err, HasSubstr("\r\x1b[K  ! message 1 ("));
  EXPECT_THAT(damaged.err, HasSubstr("): Checksum mismatch in pack 1 at offset 16\n"));
  EXPECT_THAT(damaged.err, EndsWith("\r\x1b[K"));
}

TEST_F(VerifyCommand, control) {
  const std::string file = folder_ / "report.pdf";
  const Result good = run({"control", archive(), "--by", "Zoë", "--role", "Owner", "--pdf", file});
  EXPECT_EQ(good.status, 0) << good.err;
  EXPECT_EQ(good.err, "");
  EXPECT_THAT(good.out, StartsWith("Running a deep verification. This re-reads and re-hashes every "
                                   "message.\n  [PASS] Message provenance: All 1 messages"));
  EXPECT_THAT(good.out, HasSubstr("\n  [PASS] Periodic control: Last recorded control "));
  EXPECT_THAT(good.out, HasSubstr("\nControl report written to " + file + "\n  SHA-256 " +
                                  sha256Hex(readFile(file)) +
                                  "\nSign the printed copy; its digest is in the audit chain.\n"));
  EXPECT_THAT(good.out,
              EndsWith("\n5 requirement(s) remain outstanding — see OPEN above.\n"
                       "These cannot be satisfied by this program; they need a person.\n"));
  EXPECT_THAT(run({"verify", archive()}).out, HasSubstr("[PASS] Periodic control: "));

  const struct {
    const char* name;
    std::vector<std::string> words;
    const char* error;
  } kRefusals[] = {
      {"nobody", {}, "--by <name> is required: a control is attributed to a person"},
      {"flag", {"--by"}, "--by <name> is required: a control is attributed to a person"},
      {"blank",
       {"--by="},
       "A control has to be attributed to somebody — that is what makes it a control."},
      {"noDestination", {"--by", "Zoë", "--pdf"}, "--pdf expects a file or folder"},
      {"noFolder", {"--by", "Zoë", "--pdf", "/none/x.pdf"}, "Cannot create /none/x.pdf: "},
  };
  for (const auto& c : kRefusals) {
    SCOPED_TRACE(c.name);
    std::vector<std::string> words = {"control", archive()};
    words.insert(words.end(), c.words.begin(), c.words.end());
    const Result refused = run(words);
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(refused.err, StartsWith(std::string("error: ") + c.error));
  }

  damagePack();
  const Result bad = run({"control", archive(), "--by", "Zoë", "--pdf", folder_.path()});
  EXPECT_EQ(bad.status, 1);
  EXPECT_THAT(bad.out, HasSubstr("[FAIL] Message content hashes: "));
  EXPECT_THAT(bad.out, HasSubstr("Control report written to " + (folder_ / "control-").native()));
  EXPECT_THAT(bad.err, HasSubstr("  ! message 1 ("));
}

TEST_F(VerifyCommand, procedureTemplate) {
  const std::string file = folder_ / "Verfahren.md";
  const Result written = run({"procedure-template", file});
  EXPECT_EQ(written.status, 0);
  EXPECT_EQ(written.out, "Template written to " + file +
                             "\nFill it in, keep it with the archive, and record where it is:\n"
                             "  ambervane policy <archive> --procedure \"" +
                             file + "\" --by <name>\n");
  EXPECT_THAT(readFile(file), StartsWith("# Verfahrensdokumentation"));
  EXPECT_EQ(run({"procedure-template", file}).err,
            "error: There is already a file at " + file +
                ". Choose another name; the template never replaces a file.\n");
  EXPECT_EQ(run({"procedure-template"}).err, "error: ambervane procedure-template <file.md>\n");
}

TEST_F(VerifyCommand, gaps) {
  const Result result = run({"gaps", archive()});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out,
            "Coverage\n"
            "  Span  2024-02-05 to 2024-02-05  (1 days)\n"
            "  Messages  : 1\n"
            "  Days with mail: 1 of 1 (100.0%)\n"
            "\n"
            "PROVEN MISSING — the archive itself shows these existed\n"
            "Nothing is provably missing: no gaps in any mailbox's UID sequence,\n"
            "and every archived reply's parent is present.\n"
            "\n"
            "DIRECTION\n"
            "  Cannot say: this archive holds no address for its own accounts, so\n"
            "  incoming and outgoing mail cannot be told apart.\n"
            "\n"
            "WORTH EXPLAINING — quiet periods, not proof of anything\n"
            "Weekends are excluded. Quiet periods have ordinary explanations — closures,\n"
            "holidays, a mailbox in use elsewhere — and this report cannot tell those from\n"
            "anything else. It says where to look, not what happened.\n");
  EXPECT_EQ(run({"gaps", archive(), "--quiet-days", "none"}).err,
            "error: --quiet-days expects a number of 1 or more\n");
}

TEST_F(VerifyCommand, gapsFound) {
  const auto add = [&](int day, int number, const std::string& more) {
    const std::string n = std::to_string(number);
    write("Sent/" + n, "Message-ID: <g" + n + "@x>\r\nDate: " + std::to_string(day) +
                           " Jan 2024 12:00:00 +0000\r\nFrom: anna@example.com\r\nSubject: S" + n +
                           "\r\n" + more + "\r\nText\r\n");
  };
  createFolders(folder_ / "Sent");
  // Monday to Friday, then again from Friday of the next week; numbers 6 and 7 are not there.
  for (int day = 1; day <= 5; ++day) add(day, day, "");
  add(12, 8, "In-Reply-To: <gone@x>\r\n");
  run({"create", at("g")});
  ASSERT_EQ(run({"import", at("g"), at("Sent")}).status, 0);
  const Result result = run({"gaps", at("g"), "--limit", "1"});
  EXPECT_THAT(result.out, HasSubstr("  Sent › Sent  UID 6—7  (2024-01-05 to 2024-01-12)  2 missing "
                                    "messages\n  1 replies whose parent is absent:\n"
                                    "    2024-01-12  message 6  S8  (answers gone@x)\n"));
  EXPECT_THAT(result.out, HasSubstr("  0 incoming, 6 outgoing (100% outgoing) — own address "
                                    "anna@example.com\n"));
  EXPECT_THAT(result.out, EndsWith("  2024-01-08 to 2024-01-11  4 working days with no mail at all "
                                   "(normally ~1 a day)\n"));
}

}  // namespace
}  // namespace ambervane
