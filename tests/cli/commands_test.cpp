#include "cli/commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/digest.h"
#include "cli/attachment_files.h"
#include "resources/usage.h"
#include "tests/cli/command_line.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

TEST(Usage, isPrintedWithTheRightStatus) {
  const std::string usage(resources::usage());
  EXPECT_THAT(usage, StartsWith("ambervane — IMAP archiving with audit-proof storage\n\nUSAGE\n"));
  EXPECT_THAT(usage, testing::EndsWith("combine any of them\n"));
  for (const auto& words :
       std::vector<std::vector<std::string>>{{}, {"help"}, {"--help"}, {"-h"}}) {
    EXPECT_EQ(run(words).status, 0);
    EXPECT_EQ(run(words).out, usage);
  }
  EXPECT_EQ(run({"frobnicate"}).status, 2);
  EXPECT_EQ(run({"frobnicate"}).out, usage);
  EXPECT_EQ(run({"Show"}).status, 2);
}

TEST(Usage, theTableHoldsEveryCommandOfTheText) {
  const std::string usage(resources::usage());
  std::set<std::string_view> names;
  for (const Command& command : commandTable()) {
    EXPECT_TRUE(names.insert(command.name).second) << command.name;
    const bool named = usage.find("ambervane " + std::string(command.name)) != std::string::npos;
    EXPECT_EQ(named, command.inUsage) << command.name;
    if (command.function == nullptr) {
      const Result result = run({std::string(command.name), "x"});
      EXPECT_EQ(result.status, 1);
      EXPECT_EQ(result.err, "error: ambervane " + std::string(command.name) +
                                " is not part of this version yet\n");
    }
  }
  EXPECT_EQ(names.size(), 36U);
}

TEST_F(CommandLine, wrongCalls) {
  const std::string gone = at("gone");
  static const std::vector<std::pair<std::vector<std::string>, std::string>> kCases = {
      {{"create"}, "missing archive path"},
      {{"stats"}, "missing archive path"},
      {{"import", "a"}, "usage: ambervane import <archive> <source>"},
      {{"show", "a"}, "usage: ambervane show <archive> <id|sha256>"},
      {{"show", "--help"}, "usage: ambervane show <archive> <id|sha256>"},
      {{"attachments", "a"}, "usage: ambervane attachments <archive> <id> [--extract <dir>]"},
      {{"detect"}, "usage: ambervane detect <path>"},
      {{"stats", gone}, gone + " is not a Ambervane archive"},
      {{"show", archive(), "7"}, "no such message: 7"},
      {{"show", archive(), "99999999999999999999"}, "no such message: 99999999999999999999"},
      {{"import", archive(), gone}, "Cannot read " + gone + ": No such file or directory"},
      {{"create", archive()},
       "There is already something at " + archive() +
           ". An archive is a folder of its own: choose a name that is not "
           "in use, or move what is there out of the way first."},
  };
  for (const auto& [words, text] : kCases) {
    const Result result = run(words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "error: " + text + "\n");
  }
}

TEST_F(CommandLine, createSaysWhatItMade) {
  const Result result =
      run({"create", at("b.ambervane/"), "--regimes", "nonsense", "--compression", "odd"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, StartsWith("Created archive b at " + at("b.ambervane") + "\n  "));
  EXPECT_THAT(result.out, HasSubstr("Switzerland — GeBüV / OR 957–958f"));
  EXPECT_THAT(result.out, HasSubstr("\n  Compression: Balanced — default, and quick to read\n"));
  EXPECT_THAT(result.out, HasSubstr("\n  Signing key: SHA-256 "));
  EXPECT_EQ(run({"create", at("c"), "--regimes", "us-sec-17a4,eu-gdpr"}).status, 0);
}

TEST_F(CommandLine, importReportsAndRepeats) {
  write("mails/notes.txt", "just a list\n");
  const Result first = import("mails");
  EXPECT_EQ(first.status, 0);
  EXPECT_EQ(first.err, "");
  EXPECT_THAT(first.out, StartsWith("Source: Folder of messages — mails\n"
                                    "Stored     : 3\nDuplicates : 0\nFailed     : 0\n"
                                    "Not mail   : 1 (use --archive-non-mail to archive these too)\n"
                                    "Input      : "));
  EXPECT_THAT(first.out, HasSubstr("  ! " + at("mails/notes.txt") + ": not a mail message\n"));
  const Result second = import("mails");
  EXPECT_THAT(second.out, HasSubstr("Stored     : 0\nDuplicates : 3\n"));
  EXPECT_THAT(second.out, HasSubstr("Stored size: 0 B (100.0% of input)\n"));
  EXPECT_THAT(run({"import", archive(), at("mails"), "--archive-non-mail"}).out,
              HasSubstr("Stored     : 1\n"));
}

TEST_F(CommandLine, progressIsForTerminalsAndCleansUp) {
  const Result result = run({"import", archive(), at("mails")}, true);
  EXPECT_THAT(result.err, StartsWith("\r  1 → "));
  EXPECT_THAT(result.err, HasSubstr(" stored, 0 dup, 0 failed — "));
  EXPECT_THAT(result.err, testing::EndsWith("\r\x1b[K"));
}

TEST_F(CommandLine, anImportThatTakesNothingSaysWhatItLookedFor) {
  fs::create_directory(folder_ / "photos");
  write("photos/a.jpg", "x");
  const Result result = import("photos");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, MatchesRegex("Note: nothing was taken from .*photos, looked for .*\n"));
}

TEST_F(CommandLine, theClassOptionOverridesThePolicy) {
  run({"import", archive(), at("mails/one.eml"), "--class", "transient", "--account", "x"});
  run({"import", archive(), at("mails/sub folder/three.eml"), "--class", "nonsense"});
  EXPECT_THAT(run({"show", archive(), "1"}).out,
              HasSubstr("Retentiontransient, expires 2025-02-05\nFolders x/one\n"));
  EXPECT_THAT(run({"show", archive(), "2"}).out,
              HasSubstr("Retentionbusiness, expires 2034-12-31"));
}

TEST_F(CommandLine, show) {
  write("odd.eml",
        "From: =?utf-8?q?Zo=C3=AB?= <zoe@example.com>\r\nTo: a@x\r\nCc: b@x\r\nSubject: a\x1b[2Jb"
        "\r\nX-Note: =?utf-8?q?Gr=C3=BC=C3=9Fe?=\r\n\r\nZeile\x07 eins\r\n\tzwei\r\n");
  import("odd.eml");
  const Bytes raw = readFile(folder_ / "odd.eml");
  const std::string digest = sha256Hex(raw);
  const Result shown = run({"show", archive(), digest, "--headers"});
  EXPECT_EQ(shown.out,
            "SHA-256 " + digest +
                "\nDate    (none)\nFrom    Zoë <zoe@example.com>\nTo      a@x\nCc      b@x\n"
                "Subject a\\x1b[2Jb\nSize    " +
                std::to_string(raw.size()) + " B stored as " +
                run({"show", archive(), "1"})
                    .out.substr(shown.out.find("stored as ") + 10,
                                shown.out.find("\nRetention") - shown.out.find("stored as ") - 10) +
                shown.out.substr(shown.out.find("\nRetention")));
  EXPECT_THAT(shown.out, HasSubstr("\nX-Note: =?utf-8?q?Gr=C3=BC=C3=9Fe?=\n"));
  EXPECT_THAT(shown.out, HasSubstr("\nZeile\\x07 eins\n\tzwei\n"));
  EXPECT_EQ(run({"show", archive(), digest, "--raw"}).out, raw);
}

TEST_F(CommandLine, attachmentsAreListedCheckedAndExtractedSafely) {
  import("mails");
  const std::string first = sha256Hex(file_);
  const Result listed = run({"attachments", archive(), "2"});
  EXPECT_EQ(run({"attachments", archive(), "1"}).out, "No attachments on message 1\n");
  const std::string out = at("out");
  std::set<std::string> names;
  for (const char* id : {"2", "3"}) {
    const Result result = run({"attachments", archive(), id, "--extract", out});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr(".pdf ... sha256="));
    EXPECT_THAT(result.out, testing::EndsWith("Extracted to " + out + "\n"));
  }
  for (const auto& entry : fs::recursive_directory_iterator(out)) {
    names.insert(entry.path().lexically_relative(out).native());
  }
  EXPECT_EQ(names, (std::set<std::string>{"a.pdf", "a (2).pdf", "evil.pdf"}));
  EXPECT_EQ(sha256Hex(readFile(folder_ / "out/evil.pdf")), first);
}

TEST_F(CommandLine, duplicates) {
  EXPECT_EQ(run({"duplicates", archive()}).out,
            "No attachment appears in more than 1 message(s).\n");
  import("mails");
  EXPECT_THAT(run({"duplicates", archive()}).out,
              MatchesRegex("copies  size        saved       file\n"
                           "2       8.8 KB      8.8 KB      .*\n"
                           "1 files appear more than once; storing each once saves 8.8 KB.\n"));
  EXPECT_EQ(run({"duplicates", archive(), "--min", "3"}).out,
            "No attachment appears in more than 2 message(s).\n");
}

TEST_F(CommandLine, statsAndSeal) {
  EXPECT_THAT(run({"stats", archive()}).out, HasSubstr("Stored     : nothing stored yet\n"));
  EXPECT_THAT(run({"stats", archive()}).out, HasSubstr("Folders    : none yet\n"));
  import("mails");
  const std::string out = run({"stats", archive()}).out;
  for (const char* line : {"Messages   : 3\n", "Attachments: 3 in 2 deduplicated blobs\n",
                           "Format     : version 3 (readable by builds understanding 1 and up)\n",
                           "  catalog  : ", "  rebuildable\n", "  pdf               3  26.4 KB\n",
                           "Date range : 2024-02-05 … 2024-02-06\n", "  2024-02  ",
                           "  mails/mails  1\n", "  mails/sub folder  2\n"}) {
    EXPECT_THAT(out, HasSubstr(line));
  }
  EXPECT_THAT(run({"seal", archive()}).out,
              MatchesRegex("Seal 3 written over 8 entries, 3 messages\\.\n"
                           "  head       [0-9a-f]*…\n"
                           "  timestamp  none — no authority is configured for this archive\n"));
}

TEST_F(CommandLine, detect) {
  EXPECT_EQ(run({"detect", at("mails")}).out,
            at("mails") +
                ": Folder of messages [emlDirectory]\nImporter: mails, estimated 3 "
                "messages\n");
  EXPECT_EQ(run({"detect", at("gone")}).out, at("gone") + ": Unrecognised [unknown]\n");
}

TEST(AttachmentFiles, safeFileName) {
  static const struct {
    const char* name;
    std::string given, safe;
  } kCases[] = {
      {"plain", "Offerte März.pdf", "Offerte März.pdf"},
      {"path", "../../etc/passwd", "passwd"},
      {"windowsPath", "C:\\Temp\\a.doc", "a.doc"},
      {"hidden", "...bashrc", "bashrc"},
      {"onlyDots", "..", "attachment"},
      {"empty", "", "attachment"},
      {"control", "a\n\x1b[2Jb\0c.txt", "a[2Jb"},
      {"turnedText", "rechnung\u202efdp.exe", "rechnungfdp.exe"},
      {"trailingSlash", "a/", "attachment"},
      {"long", std::string(300, 'x') + ".pdf", std::string(196, 'x') + ".pdf"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(safeFileName(c.given), c.safe);
  }
  EXPECT_LE(safeFileName(std::string(100, 'x') +
                         [] {
                           std::string umlauts;
                           for (int i = 0; i < 100; ++i) umlauts += "ü";
                           return umlauts;
                         }())
                .size(),
            200U);
}

TEST(AttachmentFiles, uniqueNames) {
  UniqueNames names;
  EXPECT_EQ(names.claim("a.pdf"), "a.pdf");
  EXPECT_EQ(names.claim("A.PDF"), "A (2).PDF");
  EXPECT_EQ(names.claim("a.pdf"), "a (3).pdf");
  EXPECT_EQ(names.claim("none"), "none");
  EXPECT_EQ(names.claim("none"), "none (2)");
}

}  // namespace
}  // namespace ambervane
