#include <gmock/gmock.h>

#include "tests/cli/command_line.h"

namespace ambervane {
namespace {

using testing::HasSubstr;
using testing::Not;

/// An archive of a few people's mail whose messages can be erased.
class EraseCommands : public CommandLine {
 protected:
  EraseCommands() {
    EXPECT_EQ(run({"create", archive(), "--regimes", "ch-gebuev,eu-gdpr"}).status, 0);
    for (int i = 0; i < 20; ++i) write("many/" + std::to_string(i) + ".eml", plainMail(i));
    write("many/carla.eml", mailWithFiles(50, {{"a.pdf", file_}}));
    EXPECT_EQ(run({"import", archive(), at("many")}).status, 0);
  }
  std::string archive() const { return at("erasable.ambervane"); }
  void write(const std::string& name, BytesView bytes) {
    std::filesystem::create_directories((folder_ / name).parent_path());
    CommandLine::write(name, bytes);
  }
  Result request(std::vector<std::string> words) {
    words.insert(words.begin(), {"request", archive()});
    return run(words);
  }
};

TEST_F(EraseCommands, eraseOneMessage) {
  const std::string usage =
      "error: usage: ambervane erase <archive> <id> --reason <r> --requester <who>\n";
  const std::vector<std::vector<std::string>> incomplete = {
      {"erase", archive()},
      {"erase", archive(), "x", "--reason", "r", "--requester", "w"},
      {"erase", archive(), "1", "--reason", "r"},
      {"erase", archive(), "1", "--reason", " ", "--requester", "w"},
      {"erase", archive(), "1", "--requester", "w", "--reason"}};
  for (const auto& words : incomplete) {
    EXPECT_EQ(run(words).err, usage);
  }
  const std::vector<std::string> words = {"erase", archive(),     "21",  "--reason",
                                          "asked", "--requester", "Anna"};
  const Result erased = run(words);
  EXPECT_EQ(erased.out,
            "Message 21 erased by destroying its content key. Pack bytes and audit chain "
            "untouched.\n");
  EXPECT_EQ(erased.status, 0);
  write("erasable.ambervane/catalog.sqlite.broken-2026-01-01T00-00-00Z", "old");
  const Result repeated = run(words);
  EXPECT_EQ(repeated.out, erased.out);
  EXPECT_THAT(repeated.err, HasSubstr("Note: catalog.sqlite.broken-2026-01-01T00-00-00Z is a "));
  const Result shown = run({"show", archive(), "21"});
  EXPECT_EQ(shown.status, 1);
  EXPECT_THAT(shown.out, HasSubstr("Subject [erased]"));
  EXPECT_THAT(shown.out, Not(HasSubstr("a.pdf")));
  const std::string gone = "error: Message 21 was erased; its content key has been destroyed\n";
  EXPECT_EQ(shown.err, gone);
  EXPECT_EQ(run({"attachments", archive(), "21"}).err, gone);
  EXPECT_THAT(run({"search", archive(), "Offerte"}).out, HasSubstr("0 matches"));
  EXPECT_THAT(run({"search", archive(), "from:carla", "is:erased"}).out, HasSubstr("[erased]"));
  EXPECT_THAT(run({"stats", archive()}).out, HasSubstr("Messages   : 21 (1 erased)"));
  EXPECT_EQ(run({"verify", archive(), "--deep"}).status, 0);
}

TEST_F(EraseCommands, reviewAndCarryOutARequest) {
  const std::string required =
      "error: --participant <address> (repeatable) or --query <q> is required\n";
  for (const auto& words :
       std::vector<std::vector<std::string>>{{},
                                             {"--participant"},
                                             {"--participant", " , "},
                                             {"--query", " "},
                                             {"--query", "is:no"},
                                             {"--query", "NOT after:never OR larger:much"}}) {
    EXPECT_EQ(request(words).err, required) << testing::PrintToString(words);
  }
  const Result review =
      request({"--participant", "ANNA@example.com,nobody@x.ch", "--participant", "dora@"});
  EXPECT_THAT(review.out,
              HasSubstr("Addresses             : ANNA@example.com, nobody@x.ch, dora@\n"
                        "Matches               : 21\nBlocked by legal hold : 0\n"
                        "Already erased        : 0\nStill within retention: 21  ← erasing these "
                        "overrides a statutory period\n  21      2024-02-06  carla@example.ch"));
  EXPECT_THAT(review.out,
              HasSubstr("  … and 6 more\nNothing was erased.\nTo carry it out, after reviewing the "
                        "list:\n  ambervane request <archive> --participant … --erase "
                        "--approved-by \"Name\" --reason \"…\" --confirm DISPOSE\n"));
  EXPECT_EQ(review.status, 0);

  std::vector<std::string> carryOut = {"--participant", "anna@",     "--erase",
                                       "--approved-by", "Bert",      "--reason",
                                       "asked",         "--confirm", "dispose"};
  EXPECT_EQ(request(carryOut).err, "error: Type DISPOSE exactly to confirm.\n");
  carryOut.back() = "DISPOSE";
  EXPECT_THAT(request(carryOut).out,
              HasSubstr("Erased                : 20\nSkipped, on hold      : 0\n"
                        "Skipped, already gone : 0\n"));
  EXPECT_THAT(request({"--query", "from:anna"}).out,
              HasSubstr("Matches               : 0\nBlocked by legal hold : 0\n"
                        "Already erased        : 20\nNothing was erased."));
  EXPECT_EQ(request(carryOut).err, "error: No messages were approved for disposal.\n");
  EXPECT_EQ(run({"verify", archive(), "--deep"}).status, 0);
}

}  // namespace
}  // namespace ambervane
