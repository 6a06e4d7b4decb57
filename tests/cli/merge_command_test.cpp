#include <gmock/gmock.h>

#include "tests/cli/command_line.h"

namespace ambervane {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

TEST_F(CommandLine, mergeTellsWhatItTook) {
  import("mails");
  const std::string other = at("b.ambervane");
  run({"create", other, "--name", "Zwei", "--regimes", "eu-gdpr"});
  const std::string tail =
      "Source head: [0-9a-f]{16}…\n"
      "Its journal and seals are kept whole at:\n.*/b.ambervane/chain/imported/[0-9A-F-]{36}\n"
      "The two chains are not merged — they cannot be. The source's chain\n"
      "verifies on its own terms, and this archive's chain records that it\n"
      "was taken in, from which archive and at which head.\n";
  for (const char* counts :
       {"Stored     : 3\nAlready held: 0\n", "Stored     : 0\nAlready held: 3\n"}) {
    const Result merged = run({"merge", other, archive()});
    EXPECT_EQ(merged.status, 0) << merged.err;
    EXPECT_THAT(merged.out,
                MatchesRegex("Merging a.ambervane into b.ambervane …\n" + (counts + tail)));
  }
  const Result verified = run({"verify", other, "--deep"});
  EXPECT_EQ(verified.status, 0) << verified.out;

  std::filesystem::remove(folder_ / "a.ambervane/packs/00000001.pack");
  const Result failed = run({"merge", other, archive()}, true);
  EXPECT_EQ(failed.status, 1) << "a script that goes on to remove the source must not";
  EXPECT_THAT(failed.out, HasSubstr("Failed     : 3\n"));
  EXPECT_THAT(failed.err, HasSubstr("  ! message 1: "));
}

TEST_F(CommandLine, convertTellsWhatItMade) {
  import("mails");
  const std::string made = at("neu.ambervane");
  const Result converted = run({"convert", archive(), made, "--name", "Neu"});
  EXPECT_EQ(converted.status, 0) << converted.err;
  EXPECT_THAT(
      converted.out,
      MatchesRegex("Converting a.ambervane to neu.ambervane …\n"
                   "The original is untouched.\n"
                   "New archive : .*/neu.ambervane\n"
                   "3 stored, 0 already held, 0 failed\n"
                   "0 tags, 0 notes, 0 legal holds\n"
                   "[0-9.]+ KB → [0-9.]+ KB  \\([0-9]+\\.[0-9]% of the original archive\\)\n"
                   "Source head : [0-9a-f]{16}…\n"
                   "The original's journal and seals are kept whole in the new archive "
                   "at:\n.*/neu.ambervane/chain/imported/[0-9A-F-]{36}\n"));
  EXPECT_THAT(run({"stats", made}).out, HasSubstr("Messages   : 3\n"));
  for (const std::string& each : {made, archive()}) EXPECT_EQ(run({"verify", each}).status, 0);
}

TEST_F(CommandLine, mergeAndConvertRefusals) {
  const struct {
    const char* name;
    std::vector<std::string> words;
    std::string error;
  } kCases[] = {
      {"mergeOne",
       {"merge", archive()},
       "merge needs the target archive and then the source archive"},
      {"convertOne",
       {"convert", archive()},
       "convert needs the archive and then where the new one goes"},
      {"itself",
       {"merge", archive(), archive()},
       "That is the same archive. Merging an archive into itself would double every message it "
       "holds."},
      {"exists",
       {"convert", archive(), at("mails")},
       at("mails") + " already exists. A conversion writes a new archive and never writes into one "
                     "that is already there."},
      {"inside",
       {"convert", archive(), archive() + "/packs/b.ambervane"},
       "the new archive cannot lie inside the one it is made from"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const Result refused = run(c.words);
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "error: " + c.error + "\n");
  }
}

}  // namespace
}  // namespace ambervane
