#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/digest.h"
#include "tests/cli/command_line.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr const char* kAllPassed = "RESULT: all checks passed";

class RebuildCatalogCommand : public CommandLine {
 protected:
  RebuildCatalogCommand() { import("mails"); }
  fs::path catalog() const { return folder_ / "a.ambervane/catalog.sqlite"; }
};

TEST_F(RebuildCatalogCommand, isAsSoundAsBefore) {
  run({"tag", archive(), "--add", "Offerte", "--query", "subject:Offerte"});
  run({"hold", archive(), "place", "--name", "Fall", "--reason", "Streit", "--custodian", "Zoë",
       "--term", "unterwegs"});
  const Result tags = run({"tag", archive(), "--list"});
  const Result holds = run({"hold", archive(), "list"});
  for (const char* content : {"nothing that SQLite knows", ""}) {
    SCOPED_TRACE(content);
    writeFileAtomically(catalog(), content);
    EXPECT_THAT(run({"stats", archive()}).err, HasSubstr("rebuild-catalog"));
    const Result rebuilt = run({"rebuild-catalog", archive()});
    EXPECT_EQ(rebuilt.status, 0);
    EXPECT_EQ(rebuilt.err.find("!"), std::string::npos) << rebuilt.err;
    EXPECT_THAT(rebuilt.out, MatchesRegex("Rebuilding the catalog from the pack files. The old "
                                          "database is kept as catalog\\.sqlite\\.broken-.*Z.*\\.\n"
                                          "Messages : 3\nBlobs    : 2\nSkipped  : 0\n"
                                          "Note     1 dictionaries restored\n"));
    const Result verified = run({"verify", archive(), "--deep"});
    EXPECT_EQ(verified.status, 0) << verified.out;
    EXPECT_THAT(verified.out, HasSubstr(kAllPassed));
    EXPECT_EQ(run({"tag", archive(), "--list"}).out, tags.out);
    EXPECT_EQ(run({"hold", archive(), "list"}).out, holds.out);
  }
  EXPECT_THAT(run({"rebuild-catalog", archive()}, true).err, HasSubstr("\r\x1b[K"));
}

TEST_F(RebuildCatalogCommand, anErasedMessageStaysAway) {
  const std::string encrypted = at("b.ambervane");
  run({"create", encrypted, "--name", "b", "--regimes", "eu-gdpr"});
  run({"import", encrypted, at("mails")});
  run({"erase", encrypted, "3", "--reason", "Antrag", "--requester", "Zoë"});
  fs::remove(folder_ / "b.ambervane/catalog.sqlite");
  const Result rebuilt = run({"rebuild-catalog", encrypted});
  EXPECT_THAT(rebuilt.out, HasSubstr("Messages : 2\nBlobs    : 2\nSkipped  : 1\n"));
  const Result verified = run({"verify", encrypted, "--deep"});
  EXPECT_EQ(verified.status, 0) << verified.out;
}

TEST_F(RebuildCatalogCommand, anImportThatWasKilledIsNamed) {
  fs::create_directory(folder_ / "more");
  write("more/four.eml", plainMail(4));
  const std::string digest = sha256Hex(plainMail(4));
  const pid_t child = ::fork();
  if (child == 0) {
    setFileStepHook([&](const FileStep& step) -> std::size_t {
      if (step.kind == FileStep::Kind::sync && step.path.filename() == "journal.jsonl" &&
          readFile(step.path).find(digest) != Bytes::npos) {
        ::_exit(9);
      }
      return step.bytes;
    });
    import("more");
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 9);
  const Result sealed = run({"seal", archive()});
  EXPECT_EQ(sealed.err,
            "Note: Messages that were being stored when the program was ended were not kept: 1. "
            "Import the same source again.\n");
  const Result verified = run({"verify", archive(), "--deep"});
  EXPECT_EQ(verified.status, 0) << verified.out;
  EXPECT_THAT(import("more").out, HasSubstr("Stored     : 1\n"));
  EXPECT_EQ(run({"verify", archive()}).status, 0);
}

}  // namespace
}  // namespace ambervane
