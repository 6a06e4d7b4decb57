#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/commands.h"
#include "cli/synthetic_mail.h"
#include "mailcore/parsed_message.h"
#include "tests/support/command_line.h"
#include "tests/support/mail_builder.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::string printedBy(const std::vector<std::string>& words, int expectedStatus = kExitSuccess) {
  const CommandResult result = runCommand(words);
  EXPECT_EQ(result.status, expectedStatus) << result.err;
  return result.out + result.err;
}

TEST(SyntheticMail, isTheSameWheneverItIsAskedFor) {
  SyntheticImporter importer(1, 40);
  const SyntheticMail again(1);
  std::set<Bytes> different;
  std::int64_t number = 0;
  importer.forEachMessage(
      [&](SourceMessage&& message) {
        EXPECT_EQ(message.raw, again.message(number++).raw);
        different.insert(message.raw);
        return true;
      },
      {});
  EXPECT_EQ(number, 40);
  EXPECT_EQ(different.size(), 40U);
  EXPECT_NE(SyntheticMail(2).message(0).raw, again.message(0).raw);
}

TEST(SyntheticMail, isMailWithThreadsFilesAndText) {
  const SyntheticMail mail;
  std::map<std::string, std::int64_t> numbers;
  std::set<std::string> shared;
  std::set<std::string> folders;
  int answers = 0;
  int files = 0;
  for (std::int64_t number = 0; number < 200; ++number) {
    SCOPED_TRACE(number);
    const SourceMessage source = mail.message(number);
    folders.insert(source.folderPath);
    const ParsedMessage parsed(source.raw);
    const auto from = parsed.from();
    ASSERT_EQ(from.size(), 1U);
    EXPECT_THAT(from.front().address, testing::MatchesRegex("person[0-9]+@bench\\.example\\.com"));
    EXPECT_EQ(parsed.date(), source.internalDate);
    EXPECT_THAT(parsed.plainTextBody(), HasSubstr(from.front().displayName.value_or("no name")));
    for (const std::string& reference : parsed.references()) {
      EXPECT_EQ(numbers.count(reference), 1U);  // an earlier message
      ++answers;
    }
    for (const AttachmentRef& file : parsed.attachments()) {
      shared.insert(file.contentHash);
      ++files;
    }
    EXPECT_TRUE(numbers.emplace(parsed.messageID().value_or(""), number).second);
  }
  EXPECT_GT(answers, 50);
  EXPECT_GT(files, 30);
  EXPECT_LT(shared.size(), static_cast<std::size_t>(files));
  EXPECT_GT(folders.size(), 5U);
  const Bytes rare = mail.message(SyntheticMail::kRarePhraseEvery / 2).raw;
  EXPECT_THAT(ParsedMessage(rare).plainTextBody(),
              HasSubstr(std::string(SyntheticMail::kRarePhrase)));
}

TEST(Bench, fillsMeasuresAndReuses) {
  const ScratchFolder folder;
  const std::string archive = folder / "b.ambervane";
  EXPECT_EQ(printedBy({"bench"}, kExitFailure),
            "error: usage: ambervane bench <archive> [--messages 100000] [--accounts 3]\n");

  const std::string first = printedBy({"bench", archive, "--messages", "50", "--accounts", "2"});
  EXPECT_THAT(first, StartsWith("Generating and ingesting 50 messages across 2 account(s)…\n"
                                "  ingested 50 (0 duplicates) in "));
  EXPECT_THAT(first, testing::ContainsRegex(
                         " s — [0-9]+ msg/s, [0-9.]+ [KM]B/s\nStored     : [0-9.]+% of .*\n"
                         "Catalog    : [0-9.]+% of the mail it indexes\n"
                         "Operations \\(best of 3\\):\n  open the sidebar \\(folders \\+ counts\\) "
                         "+[0-9]+\\.[0-9] ms   2 accounts, [0-9]+ folders, 50 messages\n"));
  EXPECT_THAT(first, testing::ContainsRegex(
                         "\nRepeated opens: first 10 rounds [0-9]+\\.[0-9][0-9] ms each, last 10 "
                         "[0-9]+\\.[0-9][0-9] ms each\nPeak resident memory: [0-9.]+ MB\n$"));

  EXPECT_THAT(printedBy({"bench", archive, "--messages", "50"}),
              StartsWith("Reusing 50 messages across 3 account(s)…\nStored     : "));
  EXPECT_THAT(printedBy({"bench", archive, "--messages", "60", "--accounts", "2"}),
              HasSubstr("\n  ingested 10 (50 duplicates) in "));
}

TEST(Bench, addsNothingToRealMail) {
  const ScratchFolder folder;
  const std::string archive = folder / "a.ambervane";
  const std::string mail = folder / "one.eml";
  writeFileAtomically(mail, plainMail(1));
  printedBy({"create", archive});
  printedBy({"import", archive, mail});
  EXPECT_THAT(printedBy({"bench", archive, "--messages", "2"}, kExitFailure),
              HasSubstr("error: the archive holds other mail (account one)"));
  EXPECT_THAT(printedBy({"bench", archive, "--messages", "1"}), StartsWith("Reusing 1 messages"));
}

}  // namespace
}  // namespace ambervane
