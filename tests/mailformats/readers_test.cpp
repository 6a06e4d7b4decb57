#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/calendar.h"
#include "base/digest.h"
#include "base/file.h"
#include "file_tree.h"
#include "mailformats/eml_reader.h"
#include "mailformats/import_error.h"
#include "mailformats/maildir_reader.h"
#include "mailformats/mbox_folder_reader.h"
#include "mailformats/mbox_reader.h"
#include "mailformats/source_detector.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const std::string kTwoMessages = "From a@b.ch Mon Feb  5 10:00:00 2024\nA: 1\n\n\nFrom c\nA: 2\n";

/// The end of what an ImportError says about reading `importer`; empty without one.
std::string importError(MessageImporter& importer) {
  try {
    harvest(importer);
  } catch (const ImportError& error) {
    return error.what();
  }
  return {};
}

TEST(MboxReader, messages) {
  const FileTree tree{{"in box#?.mbox", kTwoMessages}};
  MboxReader reader(tree / "in box#?.mbox", "Work/In");
  const Harvest found = harvest(reader);
  EXPECT_THAT(found.texts(), ElementsAre("Work/In|A: 1\n\n", "Work/In|A: 2\n"));
  EXPECT_EQ(found.messages[1].sourceIdentifier, "2");
  EXPECT_EQ(found.messages[1].originPath, (tree / "in box#?.mbox").string());
  EXPECT_EQ(iso8601(found.messages[0].internalDate.value()), "2024-02-05T10:00:00Z");
  EXPECT_EQ(found.messages[1].internalDate, std::nullopt);
  EXPECT_EQ(reader.displayName(), "in box#?.mbox");
}

TEST(MboxReader, stopsWhenToldTo) {
  const FileTree tree{{"m", kTwoMessages}};
  int count = 0;
  MboxReader(tree / "m", "").forEachMessage([&](SourceMessage&&) { return ++count > 1; }, {});
  EXPECT_EQ(count, 1);
}

TEST(MboxReader, refusesWhatCannotBeMapped) {
  const FileTree tree{{"folder/", ""}};
  ASSERT_EQ(::mkfifo((tree / "pipe").c_str(), 0600), 0);
  MboxReader pipe(tree / "pipe", "");
  MboxReader folder(tree / "folder", "");
  MboxReader missing(tree / "missing", "");
  EXPECT_THAT(importError(pipe), EndsWith("pipe: not a regular file"));
  EXPECT_THAT(importError(folder), EndsWith("folder: not a regular file"));
  EXPECT_THAT(importError(missing), EndsWith("missing: No such file or directory"));
}

TEST(MboxReader, saysWhatIsNoMessage) {
  static constexpr struct {
    const char* name;
    std::string_view content;
    std::size_t messages;
    const char* reported;  // empty: nothing
  } kCases[] = {
      {"empty", "", 0, ""},
      {"noStart", "Subject: a\n\nFrom", 0, "noStart: no message in it begins with \"From \""},
      {"head", "junk\n\nFrom a\nb", 1, "head: 6 bytes before the first message were passed over"},
      {"blankHead", " \r\n\nFrom a\nb", 1, ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const FileTree tree{{c.name, std::string(c.content)}};
    MboxReader reader(tree / c.name, "");
    const Harvest found = harvest(reader);
    EXPECT_EQ(found.messages.size(), c.messages);
    EXPECT_EQ(found.unreadable.size(), *c.reported == 0 ? 0U : 1U);
    for (const std::string& item : found.unreadable) EXPECT_THAT(item, EndsWith(c.reported));
  }
}

TEST(MboxReader, fileCutShortWhileItIsRead) {
  const std::string large = "From a\n\n" + std::string(100'000, 'x') + "\n\n";
  const FileTree tree{{"a.mbox", large + large}, {"b.mbox", "From a\nb"}};
  const fs::path file = tree / "a.mbox";
  std::vector<std::string> reported;
  int count = 0;
  const auto cut = [&](SourceMessage&&) {
    if (++count == 1) fs::resize_file(file, 10);
    return true;
  };
  MboxFolderReader(tree.root()).forEachMessage(cut, [&](const std::string& item) {
    reported.push_back(item);
  });
  EXPECT_THAT(reported, ElementsAre(EndsWith("a.mbox: it became shorter while it was read")));
  EXPECT_EQ(count, 2);
  tree.add("a.mbox", large + large);
  count = 0;
  EXPECT_THROW(MboxReader(file, "").forEachMessage(cut, {}), ImportError);
  // What replaces the file does not matter to those who have it open.
  tree.add("a.mbox", large + large);
  count = 0;
  MboxReader(file, "").forEachMessage(
      [&](SourceMessage&&) {
        fs::rename(tree / "b.mbox", file);
        tree.add("b.mbox", "");
        return ++count > 0;
      },
      [](const std::string& item) { ADD_FAILURE() << item; });
  EXPECT_EQ(count, 2);
}

TEST(EMLReader, whatTheBodyThrowsPasses) {
  const FileTree tree{{"a.eml", "From x\n\n"}, {"b.eml", "A: b"}};
  EMLReader reader(tree.root(), true);
  EXPECT_THROW(reader.forEachMessage(
                   [](SourceMessage&&) -> bool { throw ImportError(ImportError::Cancelled{}); },
                   [](const std::string& item) { ADD_FAILURE() << item; }),
               ImportError);
}

TEST(MaildirReader, fileNames) {
  static const struct {
    const char* name;
    std::string_view file;
    std::set<MessageFlag> flags;
    const char* date;  // empty: none
  } kCases[] = {
      {"none", "1707127200.M1P2.host", {}, "2024-02-05T10:00:00Z"},
      {"all",
       "1707127200.M1:2,DFPRST",
       {MessageFlag::draft, MessageFlag::flagged, MessageFlag::answered, MessageFlag::seen,
        MessageFlag::deleted},
       "2024-02-05T10:00:00Z"},
      {"exclamationMark", "0.a!2,S", {MessageFlag::seen}, "1970-01-01T00:00:00Z"},
      {"semicolon", "x;2,S", {MessageFlag::seen}, ""},
      {"otherLetters", "x:2,Sabc", {MessageFlag::seen}, ""},
      {"experimentalInfo", "x:1,S", {}, ""},
      {"dateBeyondReason", "99999999999999.x", {}, ""},
      {"dateBeforeTheEpoch", "-5.x", {}, ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(MaildirReader::flags(c.file, false), c.flags);
    EXPECT_TRUE(MaildirReader::flags(c.file, true).contains(MessageFlag::recent));
    const auto date = MaildirReader::timestamp(c.file);
    EXPECT_EQ(date ? iso8601(*date) : "", c.date);
  }
}

TEST(MaildirReader, folders) {
  const FileTree tree{
      {"new/", ""},
      {"cur/2:2,S", "b"},
      {"cur/10:2,S", "a"},
      {"cur/.hidden", "no"},
      {"tmp/1", "no"},
      {"new/3", ""},
      {".Archive.2023/cur/1", "c"},
      {".Archive.2023/new/", ""},
      {".git/objects/cur/1", "no"},
      {".git/objects/new/1", "no"},
      {"plain/deep/cur/1", "d"},
      {"plain/deep/new/", ""},
      {"plain/deep/.Sent/cur/1", "e"},
      {"plain/deep/.Sent/new/", ""},
      {"dovecot-uidlist", "no"},
  };
  fs::create_directory_symlink(tree.root(), tree / "loop");
  fs::create_directory_symlink(tree / "plain/deep", tree / "alias");
  fs::create_symlink(tree / "gone", tree / "cur/zombie");
  ASSERT_EQ(::mkfifo((tree / "cur/pipe").c_str(), 0600), 0);

  MaildirReader reader(tree.root());
  const Harvest found = harvest(reader);
  EXPECT_THAT(found.texts(), ElementsAre("INBOX|a", "INBOX|b", "INBOX|", "Archive/2023|c",
                                         "plain/deep|d", "plain/deep/Sent|e"));
  EXPECT_EQ(found.messages[2].flags, std::set{MessageFlag::recent});
  EXPECT_EQ(found.messages[0].sourceIdentifier, "10:2,S");
  EXPECT_THAT(found.unreadable, ElementsAre(EndsWith("cur/zombie: No such file or directory")));
  EXPECT_EQ(reader.estimatedCount(), 8);
  MaildirReader flat(tree.root(), false);
  EXPECT_EQ(harvest(flat).messages.size(), 4U);
}

TEST(MaildirReader, filesRenamedWhileTheyAreRead) {
  const FileTree tree{
      {"cur/1:2,", "a"}, {"cur/2:2,", "b"}, {"cur/3.x", "c"}, {"cur/4.x", "d"}, {"new/5", "e"}};
  const auto rename = [&](const char* from, const char* to) {
    std::error_code ignored;
    fs::rename(tree / from, tree / to, ignored);
  };
  Harvest found;
  MaildirReader(tree.root())
      .forEachMessage(
          [&](SourceMessage&& message) {
            rename("cur/2:2,", "cur/2:2,FS");
            rename("cur/3.x", "cur/3.x:2,R");
            rename("new/5", "cur/5:2,");
            fs::remove(tree / "cur/4.x");
            found.messages.push_back(std::move(message));
            return true;
          },
          [&](const std::string& item) { found.unreadable.push_back(item); });
  EXPECT_THAT(found.texts(), ElementsAre("INBOX|a", "INBOX|b", "INBOX|c", "INBOX|e"));
  EXPECT_EQ(found.messages[1].flags, (std::set{MessageFlag::flagged, MessageFlag::seen}));
  EXPECT_EQ(found.messages[1].sourceIdentifier, "2:2,FS");
  EXPECT_TRUE(found.messages[3].flags.empty());
  EXPECT_THAT(found.unreadable, ElementsAre(EndsWith("cur/4.x: No such file or directory")));
}

TEST(MaildirReader, namesOutsideOfUtf8) {
  const FileTree tree(
      {{"new/", ""}, {"cur/1.\xff\n", "a"}, {".B\xff/cur/1", "b"}, {".B\xff/new/", ""}});
  MaildirReader reader(tree.root());
  const Harvest found = harvest(reader);
  EXPECT_THAT(found.texts(), ElementsAre("INBOX|a", "B\uFFFD|b"));
  EXPECT_EQ(found.messages[0].sourceIdentifier, "1.\uFFFD\n");
  EXPECT_THAT(found.messages[0].originPath.value(), EndsWith("cur/1.\uFFFD\n"));
}

TEST(EMLReader, folders) {
  const FileTree tree{
      {"a.EML", "a"},
      {"b.txt", ""},
      {"c.pdf", "no"},
      {"deep/er/d.rfc822", "d"},
      {"deep/e.eml", kTwoMessages},
      {"mh/.mh_sequences", ""},
      {"mh/10", "g"},
      {"mh/9", "f"},
      {"mh/draft.txt", "h"},
      {"other/1", "i"},
      {"mixed/1", "no"},
      {"mixed/readme", "no"},
  };
  EMLReader reader(tree.root(), true);
  const Harvest found = harvest(reader);
  const std::string own = tree.root().filename().string();
  EXPECT_THAT(found.texts(), ElementsAre(own + "|a", own + "|", "deep|A: 1\n\n", "deep|A: 2\n",
                                         "deep/er|d", "mh|f", "mh|g", "mh|h", "other|i"));
  EXPECT_EQ(found.messages[4].sourceIdentifier, "d.rfc822");
  EXPECT_EQ(found.messages[4].internalDate, std::nullopt);
  EXPECT_THAT(found.unreadable, IsEmpty());
  EXPECT_EQ(reader.estimatedCount(), 8);
}

TEST(EMLReader, saysWhatItDoesNotTake) {
  const FileTree outside{{"x.eml", "no"}};
  const FileTree tree{
      {"a.eml", "a"},           {"b.msg", "\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1 and more"},
      {"c.mbox", kTwoMessages}, {"d.pst", "!BDN"},
      {"deep/Box/cur/1", "no"}, {"deep/Box/new/", ""},
  };
  fs::create_directory_symlink(outside.root(), tree / "link");
  fs::create_directory_symlink(tree / "deep", tree / "loop");
  EMLReader reader(tree.root(), true);
  const Harvest found = harvest(reader);
  EXPECT_EQ(found.messages.size(), 1U);
  EXPECT_THAT(found.unreadable,
              UnorderedElementsAre(HasSubstr("b.msg: an Outlook message"),
                                   HasSubstr("in 2 of its entries (c.mbox)"),
                                   HasSubstr("link: a link to a folder outside"),
                                   HasSubstr("deep: mail of another format in 1 of its entries")));

  const FileTree none{{"a.pdf", ""}};
  EMLReader empty(none.root(), true);
  EXPECT_THAT(harvest(empty).unreadable, ElementsAre(HasSubstr("no file in it has the name")));
}

TEST(EMLReader, singleFile) {
  const FileTree tree(
      {{"offer.2024.data", "A: b\r\n"}, {"x.msg", "\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1"}});
  EMLReader file(tree / "offer.2024.data", true);
  EXPECT_THAT(harvest(file).texts(), ElementsAre("offer.2024|A: b\r\n"));
  EXPECT_EQ(file.displayName(), "offer.2024.data");
  EMLReader outlook(tree / "x.msg", true);
  EXPECT_THAT(importError(outlook), HasSubstr("an Outlook message"));
  EMLReader missing(tree / "gone.eml", true);
  EXPECT_THAT(importError(missing), EndsWith("gone.eml: No such file or directory"));
}

TEST(EMLReader, numberedFilesOfOneFolder) {
  const FileTree tree{{"2", "b"}, {"10", "c"}, {"1", "a"}, {"3/1", "no"}, {"x.eml", "no"}};
  EMLReader reader(tree.root(), false, {});
  const std::string own = tree.root().filename().string();
  const Harvest found = harvest(reader);
  EXPECT_THAT(found.texts(), ElementsAre(own + "|a", own + "|b", own + "|c"));
  EXPECT_THAT(found.unreadable, ElementsAre(HasSubstr("/3: a folder inside of an MH folder")));
}

TEST(MboxFolderReader, messages) {
  const FileTree tree{
      {"b.mbox", "From x\nb"},
      {"a.MBOX", "From x\na"},
      {"empty.mbox", ""},
      {"plain", "From x\nc"},
      {"notes", "no"},
      {"2023.backup", "From x\nd"},
      {".hidden.mbox", "no"},
      {"list.txt", "From x\nno"},
      {"Sent.mbox/mbox", "From x\ne"},
      {"Work.mbox/Offers.mbox", "From x\nf"},
      {"Box/cur/1", "From x\ng"},
      {"Box/new/", ""},
      {"loose/x.eml", "no"},
      {"loose/y.emlx", "no"},
  };
  MboxFolderReader reader(tree.root());
  const Harvest found = harvest(reader);
  EXPECT_THAT(found.texts(), ElementsAre("2023.backup|d", "Sent|e", "Work/Offers|f", "a|a", "b|b",
                                         "plain|c", "Box|From x\ng"));
  EXPECT_THAT(found.unreadable, ElementsAre(HasSubstr("loose: mail of another format in 2 of")));
}

TEST(MboxFolderReader, saysOnceWhatItCannotRead) {
  const FileTree outside;
  const FileTree tree{{"a.mbox", "From x\na"},    {"b.mbox", "From x\nb"}, {"Inbox", "From x\nc"},
                      {".Archive/cur/1", "d"},    {".Archive/new/", ""},   {"closed/a.mbox", ""},
                      {"Box/cur/1", "From x\ne"}, {"Box/new/", ""}};
  fs::create_directory_symlink(outside.root(), tree / "link");
  fs::permissions(tree.root(), fs::perms(0755));
  for (const char* const path : {"b.mbox", "Inbox", ".Archive", "closed", "Box/new"}) {
    fs::permissions(tree / path, fs::perms::none);
  }
  MboxFolderReader reader(tree.root());
  Harvest found;
  std::optional<std::int64_t> closedCount = 0;
  {
    const WithoutPrivilege unprivileged;
    found = harvest(reader);
    closedCount = MaildirReader(tree / "closed").estimatedCount();
  }
  EXPECT_THAT(found.texts(), ElementsAre("a|a", "Box|From x\ne"));
  EXPECT_THAT(
      found.unreadable,
      UnorderedElementsAre(
          EndsWith("/b.mbox: Permission denied"), EndsWith("/Inbox: Permission denied"),
          EndsWith("/.Archive: Permission denied"), EndsWith("/closed: Permission denied"),
          EndsWith("/Box/new: Permission denied"), HasSubstr("/link: a link to a folder outside")));
  EXPECT_EQ(closedCount, std::nullopt);
}

TEST(Readers, exampleMailIsImportedWhole) {
  const fs::path mail = fs::path(__FILE__).parent_path() / "../../examples/mail";
  const auto importer = SourceDetector::importer(mail, SourceDetector::detect(mail));
  const Harvest found = harvest(*importer);
  EXPECT_EQ(found.messages.size(), 40U);
  EXPECT_THAT(found.unreadable, IsEmpty());
}

TEST(Readers, realMail) {
  const fs::path samples = fs::path(__FILE__).parent_path() / "../../../shared/samples";
  const fs::path lists = samples / "mbox/lists";
  if (!fs::exists(lists)) return;  // nothing to compare with outside of the development machine
  std::vector<std::string> expected;
  std::ifstream oracle(lists / "usrp-users-150.sha256");
  for (std::string line; std::getline(oracle, line);) expected.push_back(line);
  MboxReader reader(lists / "usrp-users-150.mbox", "usrp");
  std::vector<std::string> found;
  for (const SourceMessage& message : harvest(reader).messages) {
    found.push_back(sha256Hex(message.raw) + " " + std::to_string(message.raw.size()) + " " +
                    message.sourceIdentifier.value());
  }
  EXPECT_THAT(found, ElementsAreArray(expected));
}

}  // namespace
}  // namespace ambervane
