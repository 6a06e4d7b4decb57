#include "mailformats/source_detector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>

#include "file_tree.h"
#include "mailformats/apple_mail_reader.h"
#include "mailformats/container_reader.h"
#include "mailformats/eml_reader.h"
#include "mailformats/import_error.h"
#include "mailformats/maildir_reader.h"
#include "mailformats/mbox_folder_reader.h"
#include "mailformats/mbox_reader.h"
#include "mailformats/portable_export_reader.h"
#include "mailformats/thunderbird_reader.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

const std::string kManifest = R"({"messages": [{"file": "a.eml", "folder": "In",
    "flags": ["\\Seen"], "internalDate": 1.5}, {"file": "b", "folder": "", "flags": null}]})";
const std::string kCompound = "\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1";

TEST(SourceDetector, folders) {
  using Kind = MailSourceKind;
  static const struct {
    const char* name;
    const char* path;
    FileTree::Files files;
    Kind kind;
  } kCases[] = {
      {"missing", "x", {}, Kind::unknown},
      {"empty", "x", {{"x/", ""}}, Kind::unknown},
      {"maildir", "x", {{"x/cur/", ""}, {"x/new/", ""}, {"x/a.eml", ""}}, Kind::maildir},
      {"curAsAFile", "x", {{"x/cur", ""}, {"x/new/", ""}}, Kind::emlDirectory},
      {"maildirOfDotFoldersOnly", "x", {{"x/.In/cur/", ""}, {"x/.In/new/", ""}}, Kind::maildir},
      {"slashBehindDotFoldersOnly", "x/", {{"x/.In/cur/", ""}, {"x/.In/new/", ""}}, Kind::maildir},
      {"dotFoldersDeeper", "x", {{"x/a/.In/cur/", ""}, {"x/a/.In/new/", ""}}, Kind::emlDirectory},
      {"hiddenMailbox",
       "x",
       {{"x/a.pdf", ""}, {"x/.a.mbox", ""}, {"x/.b/Inbox", "From a\n"}},
       Kind::emlDirectory},
      {"hiddenMaildir", "x", {{"x/.b/In/cur/", ""}, {"x/.b/In/new/", ""}}, Kind::emlDirectory},
      {"messagesOfMaildirPlusPlus",
       "x",
       {{"x/.In/cur/1", "From a\n"}, {"x/.In/new/", ""}},
       Kind::maildir},
      {"maildirAsChild", "x", {{"x/In/cur/", ""}, {"x/In/new/", ""}}, Kind::mboxFolder},
      {"maildirDeeper", "x", {{"x/a/In/cur/", ""}, {"x/a/In/new/", ""}}, Kind::mboxFolder},
      {"maildirsOfBothKinds",
       "x",
       {{"x/.In/cur/", ""}, {"x/.In/new/", ""}, {"x/Out/cur/", ""}, {"x/Out/new/", ""}},
       Kind::mboxFolder},
      {"maildirPlusPlusBesideMbox",
       "x",
       {{"x/.In/cur/", ""}, {"x/.In/new/", ""}, {"x/a.mbox", ""}},
       Kind::mboxFolder},
      {"portableExport", "x", {{"x/reimport-manifest.json", kManifest}}, Kind::portableExport},
      {"damagedManifest",
       "x",
       {{"x/reimport-manifest.json", R"({"messages": [{"file": 1}]})"}},
       Kind::emlDirectory},
      {"package", "x.mbox/", {{"x.mbox/mbox", ""}}, Kind::appleMailPackage},
      {"packageWithoutMbox", "x.mbox", {{"x.mbox/a.eml", ""}}, Kind::appleMail},
      {"appleMailRoot", "Mail/V10", {{"Mail/V10/a.eml", ""}}, Kind::appleMail},
      {"otherVersionFolder", "Backup/V10", {{"Backup/V10/a.eml", ""}}, Kind::emlDirectory},
      {"thunderbird", "x", {{"x/prefs.js", ""}, {"x/Mail/", ""}}, Kind::thunderbirdProfile},
      {"emlxBeforeEml", "x", {{"x/a.eml", ""}, {"x/1.emlx", ""}}, Kind::appleMail},
      {"emlxDeeper", "x", {{"x/a/b/1.emlx", ""}, {"x/c.txt", ""}}, Kind::appleMail},
      {"mh", "x", {{"x/1", ""}, {"x/22", ""}}, Kind::mhFolder},
      {"mhWithFolder", "x", {{"x/1", ""}, {"x/2/1", ""}}, Kind::mhFolder},
      {"mhWithSequences", "x", {{"x/1", ""}, {"x/.mh_sequences", ""}}, Kind::emlDirectory},
      {"foldersNamedAfterYears", "x", {{"x/2023/a.eml", ""}, {"x/2024/", ""}}, Kind::emlDirectory},
      {"eml", "x", {{"x/a.EML", ""}, {"x/b.msg", ""}}, Kind::emlDirectory},
      {"msg", "x", {{"x/b.Msg", ""}, {"x/c", ""}}, Kind::outlookMessageFolder},
      {"mboxFiles", "x", {{"x/deep/a.mbox", ""}}, Kind::mboxFolder},
      {"mboxWithoutExtension", "x", {{"x/Inbox", "From a\n"}}, Kind::mboxFolder},
      {"emptyPackages", "x", {{"x/a.mbox/", ""}}, Kind::appleMail},
      {"otherFiles", "x", {{"x/a.pdf", ""}}, Kind::emlDirectory},
      {"ownExport",
       "x",
       {{"x/index.json", ""}, {"x/messages/cur/", ""}, {"x/messages/new/", ""}},
       Kind::maildir},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const FileTree tree(c.files);
    EXPECT_EQ(kindName(SourceDetector::detect(tree / c.path)), kindName(c.kind));
  }
}

TEST(SourceDetector, files) {
  static const struct {
    const char* name;
    const char* file;
    std::string content;
    MailSourceKind kind;
  } kCases[] = {
      {"empty", "a.mbox", "", MailSourceKind::emlFile},
      {"threeBytes", "a", "abc", MailSourceKind::emlFile},
      {"mboxWhateverItsName", "a.eml", "From ", MailSourceKind::mbox},
      {"almostMbox", "a.mbox", "From:", MailSourceKind::emlFile},
      {"olm", "a.OLM", "PK\3\4", MailSourceKind::olm},
      {"zip", "a.zip", "PK\3\4", MailSourceKind::zipFile},
      {"gzip", "a.mbox", "\x1f\x8b\x08", MailSourceKind::gzipFile},
      {"olmByNameOnly", "a.olm", "From x", MailSourceKind::mbox},
      {"pstWhateverItsName", "a.bin", "!BDN", MailSourceKind::pst},
      {"compound", "a.msg", kCompound, MailSourceKind::outlookMessage},
      {"compoundCut", "a.msg", kCompound.substr(0, 7), MailSourceKind::emlFile},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const FileTree tree{{c.file, c.content}};
    EXPECT_EQ(kindName(SourceDetector::detect(tree / c.file)), kindName(c.kind));
  }
  const FileTree tree;
  ASSERT_EQ(::mkfifo((tree / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(SourceDetector::detect(tree / "pipe"), MailSourceKind::unknown);
}

/// The class of an importer, or what is said where there is none.
std::string importerOf(const fs::path& path, MailSourceKind kind) {
  try {
    const auto importer = SourceDetector::importer(path, kind);
    if (dynamic_cast<MboxReader*>(importer.get()) != nullptr) return "MboxReader";
    if (dynamic_cast<MaildirReader*>(importer.get()) != nullptr) return "MaildirReader";
    if (dynamic_cast<EMLReader*>(importer.get()) != nullptr) return "EMLReader";
    if (dynamic_cast<MboxFolderReader*>(importer.get()) != nullptr) return "MboxFolderReader";
    if (dynamic_cast<AppleMailReader*>(importer.get()) != nullptr) return "AppleMailReader";
    if (dynamic_cast<ThunderbirdReader*>(importer.get()) != nullptr) return "ThunderbirdReader";
    if (dynamic_cast<PortableExportReader*>(importer.get()) != nullptr) return "PortableReader";
    if (dynamic_cast<ContainerReader*>(importer.get()) != nullptr) return "ContainerReader";
    return "another";
  } catch (const ImportError& error) {
    return error.what();
  }
}

TEST(SourceDetector, importers) {
  const std::string notYet = "/x: this version cannot import this kind of source yet ";
  const std::map<MailSourceKind, std::string> expected = {
      {MailSourceKind::mbox, "MboxReader"},
      {MailSourceKind::maildir, "MaildirReader"},
      {MailSourceKind::appleMail, "AppleMailReader"},
      {MailSourceKind::appleMailPackage, "MboxReader"},
      {MailSourceKind::emlDirectory, "EMLReader"},
      {MailSourceKind::emlFile, "EMLReader"},
      {MailSourceKind::mhFolder, "EMLReader"},
      {MailSourceKind::thunderbirdProfile, "ThunderbirdReader"},
      {MailSourceKind::mboxFolder, "MboxFolderReader"},
      {MailSourceKind::portableExport, "PortableReader"},
      {MailSourceKind::olm, notYet + "(Outlook for Mac archive)"},
      {MailSourceKind::pst, notYet + "(Outlook personal store)"},
      {MailSourceKind::outlookMessage, notYet + "(Outlook message)"},
      {MailSourceKind::outlookMessageFolder, "EMLReader"},
      {MailSourceKind::gzipFile, "ContainerReader"},
      {MailSourceKind::zipFile, "ContainerReader"},
      {MailSourceKind::unknown, "Unsupported mail source at /x"},
  };
  for (const MailSourceKind kind : kAllMailSourceKinds) {
    SCOPED_TRACE(kindName(kind));
    EXPECT_EQ(importerOf("/x", kind), expected.at(kind));
  }
  const FileTree tree{{"Work.MBOX", "From a\nb"}, {"Sent.mbox/mbox", "From a\nc"}};
  const auto file = SourceDetector::importer(tree / "Work.MBOX", MailSourceKind::mbox);
  EXPECT_THAT(harvest(*file).texts(), ElementsAre("Work|b"));
  const auto package =
      SourceDetector::importer(tree / "Sent.mbox/", MailSourceKind::appleMailPackage);
  EXPECT_THAT(harvest(*package).texts(), ElementsAre("Sent|c"));
  EXPECT_EQ(package->displayName(), "Sent.mbox");
}

TEST(AccessProblem, remedyOnMacos) {
  using Remedy = AccessProblem::Remedy;
  static constexpr struct {
    const char* name;
    std::string_view path;
    Remedy remedy;
  } kCases[] = {
      {"mail", "/Users/a/Library/Mail", Remedy::fullDiskAccess},
      {"groupContainers", "/Users/a/Library/Group Containers/x", Remedy::fullDiskAccess},
      {"volume", "/Volumes/Backup", Remedy::filesAndFolders},
      {"elsewhere", "/srv/mail", Remedy::filePermissions},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto remedy = AccessProblem::macosRemedyFor(c.path, "/Users/a");
    EXPECT_EQ(remedy, c.remedy);
    EXPECT_EQ(AccessProblem({"", remedy}).settingsURL().has_value(),
              remedy != Remedy::filePermissions);
  }
  EXPECT_EQ(AccessProblem::macosRemedyFor("/Documents", ""), Remedy::filePermissions);
  EXPECT_EQ(AccessProblem({"/x", Remedy::filesAndFolders}).explanation().text(),
            "macOS does not let this program read /x. Allow it in System Settings > Privacy & "
            "Security > Files and Folders, then run it again.");
  EXPECT_EQ(AccessProblem({"/x", Remedy::fullDiskAccess}).explanation().text(),
            "macOS does not let this program read /x. Give the program that runs it Full Disk "
            "Access in System Settings > Privacy & Security > Full Disk Access, then run it "
            "again.");
}

TEST(SourceDetector, accessProblem) {
  const FileTree tree{
      {"file", "a"},
      {"empty", ""},
      {"closed", "a"},
      {"closedFolder/x", ""},
      {"listed/x", "a"},
      {"open/x", "a"},
      {"open/sub/", ""},
      {"maildir/cur/1", "a"},
      {"maildir/new/", ""},
      {"mixed/x", "a"},
      {"mixed/y", "a"},
      {"mixed/open/z", "a"},
      {"export/index.json", "a"},
      {"export/messages/x", "a"},
  };
  fs::permissions(tree.root(), fs::perms(0755));
  for (const char* const path : {"closed", "closedFolder", "listed/x", "maildir/cur", "mixed/x",
                                 "mixed/y", "export/messages"}) {
    fs::permissions(tree / path, fs::perms::none);
  }
  static constexpr struct {
    const char* path;
    bool refused;
  } kCases[] = {{"file", false},  {"empty", false},         {"missing", false},
                {"open", false},  {"closed", true},         {"closedFolder", true},
                {"listed", true}, {"closedFolder/x", true}, {"maildir", true},
                {"mixed", false}, {"export", true}};
  const WithoutPrivilege unprivileged;
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.path);
    const auto problem = SourceDetector::accessProblem(tree / c.path);
    ASSERT_EQ(problem.has_value(), c.refused);
    if (!problem) continue;
    EXPECT_EQ(problem->explanation().text(),
              (tree / c.path).string() + " cannot be read: its permissions do not allow it.");
  }
}

}  // namespace
}  // namespace ambervane
