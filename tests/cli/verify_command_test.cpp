#include <gmock/gmock.h>

#include "tests/cli/command_line.h"

namespace ambervane {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class VerifyCommand : public CommandLine {
 protected:
  VerifyCommand() { import("mails/one.eml"); }
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

  const auto pack = folder_ / "a.ambervane/packs/00000001.pack";
  Bytes bytes = readFile(pack);
  bytes.back() = static_cast<char>(bytes.back() ^ 1);
  writeFileAtomically(pack, bytes);
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
