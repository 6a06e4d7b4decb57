#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "base/digest.h"
#include "base/file.h"
#include "file_tree.h"
#include "mailformats/apple_mail_reader.h"
#include "mailformats/import_error.h"
#include "mailformats/portable_export_reader.h"
#include "mailformats/portable_manifest.h"
#include "mailformats/source_detector.h"
#include "mailformats/thunderbird_reader.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

TEST(AppleMailReader, messages) {
  const std::string plist =
      "<plist><dict><key>flags</key><integer>1</integer>"
      "<key>date-received</key><integer>5</integer></dict></plist>";
  const FileTree outside{{"8.emlx", "2\nno"}};
  const FileTree tree{
      {"A/INBOX.mbox/B/Data/Messages/1.emlx", "4\nA: 1" + plist},
      {"A/INBOX.mbox/B/Data/Messages/2.partial.emlx", "4\nA: 2"},
      {"A/INBOX.mbox/B/Data/Attachments/2/2/old.eml", "no"},
      {"A/Archive.mbox/2023.mbox/B/Messages/3.emlx", "4\nA: 3"},
      {"A/Archive.mbox/2023.mbox/B/Messages/4.emlx", "no length"},
      {"loose/5.emlx", "4\nA: 5"},
      {"old/mbox", "From x\nno"},
  };
  fs::create_directory_symlink(outside.root(), tree / "link");
  fs::create_directory_symlink(tree.root(), tree / "A/loop");
  ASSERT_EQ(::mkfifo((tree / "loose/6.emlx").c_str(), 0600), 0);
  AppleMailReader reader(tree.root());
  const Harvest found = harvest(reader);
  EXPECT_THAT(found.texts(), ElementsAre("Archive/2023|A: 3", "INBOX|A: 1", "loose|A: 5"));
  EXPECT_EQ(found.messages[1].flags, std::set{MessageFlag::seen});
  EXPECT_EQ(found.messages[1].internalDate, Date{5});
  EXPECT_EQ(found.messages[1].sourceIdentifier, "1");
  EXPECT_THAT(
      found.unreadable,
      UnorderedElementsAre(EndsWith("2.partial.emlx: not a whole message, its attachments lie "
                                    "apart from it"),
                           EndsWith("4.emlx: not a message Apple Mail wrote"),
                           HasSubstr("old: mail of another format in 1 of its entries (mbox)"),
                           HasSubstr("link: a link to a folder outside")));
  EXPECT_EQ(reader.estimatedCount(), 4);
  AppleMailReader withPartial(tree.root(), true);
  EXPECT_EQ(harvest(withPartial).messages[2].sourceIdentifier, "2.partial");
}

TEST(AppleMailReader, mailStore) {
  using Kind = AppleMailReader::MailStoreStatus::Kind;
  const FileTree tree{{"a/Library/Mail/V9/", ""},    {"a/Library/Mail/V10/", ""},
                      {"a/Library/Mail/V11x/", ""},  {"a/Library/Mail/V12", ""},
                      {"none/Library/Mail/Vx/", ""}, {"closed/Library/Mail/V9/", ""}};
  fs::permissions(tree.root(), fs::perms(0755));
  fs::permissions(tree / "closed/Library/Mail", fs::perms::none);
  const WithoutPrivilege unprivileged;
  const auto located = [&](const char* home) {
    return AppleMailReader::locateMailStore(tree / home);
  };
  EXPECT_EQ(located("a").path, tree / "a/Library/Mail/V10");
  EXPECT_EQ(located("none").kind, Kind::noMailStore);
  EXPECT_EQ(located("gone").kind, Kind::noMailStore);
  EXPECT_EQ(located("closed").kind, Kind::accessDenied);
}

TEST(ThunderbirdReader, messages) {
  const FileTree tree{
      {"prefs.js", "no"},
      {"Mail/Local Folders/Inbox", "From x\nX-Mozilla-Status: 0009\na"},
      {"Mail/Local Folders/Inbox.msf", "no"},
      {"Mail/Local Folders/popstate.dat", "no"},
      {"Mail/Local Folders/.hidden", "no"},
      {"Mail/Local Folders/filterlog.html", "no"},
      {"Mail/Local Folders/Notes.html", "From x\nb"},
      {"Mail/Local Folders/Archives", ""},
      {"Mail/Local Folders/Archives.sbd/2023", "From x\nc"},
      {"Mail/Local Folders/Archives.sbd/2023.sbd/May", "From x\nd"},
      {"Mail/Local Folders/Single/cur/1.eml", "no"},
      {"Mail/Local Folders/Broken", "no mbox"},
      {"ImapMail/imap.example.org/INBOX", "From x\ne"},
      {"Cache/x", "From x\nno"},
  };
  ThunderbirdReader reader(tree.root());
  const Harvest found = harvest(reader);
  EXPECT_THAT(
      found.texts(),
      ElementsAre("imap.example.org/INBOX|e", "Local Folders/Inbox|X-Mozilla-Status: 0009\na",
                  "Local Folders/Notes.html|b", "Local Folders/Archives/2023|c",
                  "Local Folders/Archives/2023/May|d"));
  EXPECT_EQ(found.messages[1].flags, (std::set{MessageFlag::seen, MessageFlag::deleted}));
  EXPECT_THAT(found.unreadable,
              UnorderedElementsAre(HasSubstr("Single: a mailbox with a file for each message"),
                                   EndsWith("Broken: no message in it begins with \"From \"")));

  const FileTree elsewhere{{"prefs.js", ""}, {"other/L/Inbox", "From x\na"}};
  fs::create_directory_symlink("other", elsewhere / "Mail");
  fs::create_directory_symlink("other", elsewhere / "ImapMail");
  fs::create_directory_symlink("../../other", elsewhere / "other/L/Loop.sbd");
  ThunderbirdReader linked(elsewhere.root());
  EXPECT_THAT(harvest(linked).texts(), ElementsAre("L/Inbox|a"));
}

TEST(PortableManifest, decoding) {
  static constexpr struct {
    const char* name;
    BytesView json;
    int entries;  // -1: refused
  } kCases[] = {
      {"none", R"({"messages": []})", 0},
      {"unknownKeys",
       R"({"v": [{"messages": [1]}, [[2]]], "messages": [{"x": {"file": 1, "y": [[{}]]},
        "file": "a", "z": [["b"]], "folder": "c", "flags": ["\\Seen"], "internalDate": 5,
        "size": 12}], "o": {"messages": 1}})",
       1},
      {"nulls", R"({"messages": [{"file": "a", "folder": "", "flags": null,
        "internalDate": null}, {"folder": "b", "file": "c", "internalDate": -1.5}]})",
       2},
      {"noMessages", R"({"a": 1})", -1},
      {"noObject", R"([{"messages": []}])", -1},
      {"number", "1", -1},
      {"empty", "", -1},
      {"messagesTwice", R"({"messages": [], "messages": []})", -1},
      {"messagesAsObject", R"({"messages": {}})", -1},
      {"messagesAsNull", R"({"messages": null})", -1},
      {"entryAsText", R"({"messages": ["a"]})", -1},
      {"entryAsArray", R"({"messages": [[]]})", -1},
      {"noFile", R"({"messages": [{"file": "a", "folder": ""}, {"folder": ""}]})", -1},
      {"noFolder", R"({"messages": [{"file": "a"}]})", -1},
      {"fileAsNumber", R"({"messages": [{"file": 1, "folder": ""}]})", -1},
      {"fileAsNull", R"({"messages": [{"file": null, "folder": ""}]})", -1},
      {"folderAsArray", R"({"messages": [{"file": "a", "folder": ["b"]}]})", -1},
      {"flagsAsText", R"({"messages": [{"file": "a", "folder": "", "flags": "b"}]})", -1},
      {"flagAsNumber", R"({"messages": [{"file": "a", "folder": "", "flags": [1]}]})", -1},
      {"flagAsArray", R"({"messages": [{"file": "a", "folder": "", "flags": [["b"]]}]})", -1},
      {"dateAsText", R"({"messages": [{"file": "a", "folder": "", "internalDate": "1"}]})", -1},
      {"cut", R"({"messages": [{"file": "a", "folder": ""}])", -1},
      {"trailing", R"({"messages": []} x)", -1},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto manifest = PortableManifest::decode(c.json);
    EXPECT_EQ(manifest ? static_cast<int>(manifest->messages.size()) : -1, c.entries);
  }
  const std::string deep = R"({"messages": [], "x": )" + std::string(100'000, '[');
  EXPECT_FALSE(PortableManifest::decode(deep));
}

TEST(PortableExportReader, messages) {
  const FileTree outside{{"secret.eml", "no"}};
  const FileTree tree{
      {"reimport-manifest.json",
       R"({"archiveName": "x", "messages": [
        {"file": "messages/1.eml", "folder": "In/Work", "flags": ["\\SEEN", "x", "\\Flagged"],
         "internalDate": 1.5, "sha256": "0"},
        {"file": "messages\\2.eml", "folder": "", "internalDate": 1e300},
        {"file": "messages/../messages/./1.eml", "folder": "Copy"},
        {"file": "../secret.eml", "folder": "a"}, {"file": "/etc/passwd", "folder": "a"},
        {"file": "messages\\..\\..\\x", "folder": "a"}, {"file": "", "folder": "a"},
        {"file": "a\u0000b", "folder": "a"}, {"file": "out/secret.eml", "folder": "a"},
        {"file": "messages/link.eml", "folder": "a"}, {"file": "messages", "folder": "a"},
        {"file": "messages/gone.eml", "folder": "a"}]})"},
      {"messages/1.eml", "A: 1"},
      {"messages/2.eml", "A: 2"},
  };
  fs::create_directory_symlink(outside.root(), tree / "out");
  fs::create_symlink(outside / "secret.eml", tree / "messages/link.eml");
  PortableExportReader reader(tree.root() / "");
  const Harvest found = harvest(reader);
  EXPECT_THAT(found.texts(), ElementsAre("In/Work|A: 1", "|A: 2", "Copy|A: 1"));
  EXPECT_EQ(found.messages[0].flags, (std::set{MessageFlag::seen, MessageFlag::flagged}));
  EXPECT_EQ(found.messages[0].internalDate, Date{1.5});
  EXPECT_EQ(found.messages[1].internalDate, std::nullopt);
  EXPECT_EQ(found.messages[1].sourceIdentifier, "2.eml");
  const auto leadsOut = [](const char* file) {
    return EndsWith("reimport-manifest.json: the entry \"" + std::string(file) +
                    "\" leads out of the export");
  };
  EXPECT_THAT(
      found.unreadable,
      ElementsAre(leadsOut("../secret.eml"), leadsOut("/etc/passwd"),
                  leadsOut("messages\\..\\..\\x"), leadsOut(""), HasSubstr("leads out"),
                  leadsOut("out/secret.eml"), EndsWith("/link.eml: a link, not followed"),
                  EndsWith("/messages: not a regular file"), HasSubstr("gone.eml: No such file")));
  EXPECT_EQ(reader.estimatedCount(), 12);

  tree.add("reimport-manifest.json", R"({"messages": [{}]})");
  EXPECT_THROW(harvest(reader), ImportError);
  EXPECT_EQ(reader.estimatedCount(), std::nullopt);
}

TEST(StoreReaders, realMail) {
  const fs::path samples = fs::path(__FILE__).parent_path() / "../../../shared/samples";
  if (!fs::exists(samples)) return;  // nothing to compare with outside of the development machine
  const auto found = [&](const char* path, MailSourceKind kind) {
    EXPECT_EQ(SourceDetector::detect(samples / path), kind);
    return harvest(*SourceDetector::importer(samples / path, kind));
  };
  const Harvest apple = found("applemail/Mail/V10", MailSourceKind::appleMail);
  EXPECT_EQ(apple.messages.size(), 20U);
  EXPECT_THAT(apple.unreadable, IsEmpty());
  const Harvest thunderbird = found("thunderbird/profile", MailSourceKind::thunderbirdProfile);
  EXPECT_EQ(thunderbird.messages.size(), 20U);
  EXPECT_THAT(thunderbird.unreadable, IsEmpty());
  const Harvest joined = found("emlx/partial/input", MailSourceKind::appleMail);
  ASSERT_EQ(joined.messages.size(), 1U);
  EXPECT_EQ(joined.messages[0].raw, readFile(samples / "emlx/partial/expected_results/114862.eml"));
}

}  // namespace
}  // namespace ambervane
