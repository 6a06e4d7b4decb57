#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <regex>

#include "base/text.h"
#include "cli/display_columns.h"
#include "evidence/audit_journal.h"
#include "platform/immutable_flag.h"
#include "tests/cli/command_line.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// The output with every time taken in it as "N ms".
std::string timeless(const std::string& out) {
  return std::regex_replace(out, std::regex("[0-9]+ ms"), "N ms");
}

class SearchCommands : public CommandLine {
 protected:
  SearchCommands() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): before any thread
    ::setenv("TZ", "Europe/Zurich", 1);
    ::tzset();
    fs::remove_all(folder_ / "mails/sub folder/three.eml");
    write("mails/none.eml",
          "From: =?utf-8?q?=E8=8D=92=E5=B7=9D=E5=81=A5=E4=BA=8C=E3=81=A8=E9=95=B7=E3=81=84=E5=90"
          "=8D=E5=89=8D=E3=81=AE=E4=BA=BA=E3=80=85?= <k@example.jp>\r\nSubject: x\x1b[2J " +
              std::string(80, 'y') + "\r\n\r\nTagblatt\r\n");
    import("mails");
  }
  ~SearchCommands() override {
    ::unsetenv("TZ");  // NOLINT(concurrency-mt-unsafe)
    ::tzset();
  }
  Result search(std::vector<std::string> words) {
    words.insert(words.begin(), {"search", archive()});
    Result result = run(words);
    result.out = timeless(result.out);
    return result;
  }
  std::int64_t journalEntries() const {
    return AuditJournal(
               folder_ / "a.ambervane/chain/journal.jsonl", [] { return "t"; }, false)
        .count();
  }
};

TEST_F(SearchCommands, searchPrintsItsHits) {
  const std::string two = "3       2024-02-06 11:00 📎 carla@example.ch             Offerte 2\n";
  const std::string one = "2       2024-02-05 10:00    Anna Beispiel                Lieferung 1\n";
  const std::string none = "1                           荒川健二と長い名前の人々     x\\x1b[2J " +
                           std::string(70 - 9, 'y') + "\n";
  const std::int64_t before = journalEntries();
  EXPECT_EQ(search({""}).out, "3 matches in N ms\n" + two + one + none);
  EXPECT_EQ(journalEntries(), before);
  EXPECT_EQ(search({"--limit=1", "--sort", "size", ""}).out, "3 matches in N ms\n" + two);
  EXPECT_EQ(search({"from:anna", "lieferung"}).out, "1 matches in N ms (full text)\n" + one);
  EXPECT_EQ(search({"tagblatt", "or", "ware", "--sort", "odd", "--limit", "many"}).out,
            "2 matches in N ms\n" + one + none);
  EXPECT_EQ(search({"nowhere", "--sort", "relevance"}).out, "0 matches in N ms (full text)\n");
  EXPECT_EQ(journalEntries(), before + 3);
  EXPECT_EQ(run({"search", archive()}).err, "error: usage: ambervane search <archive> <query>\n");
}

TEST_F(SearchCommands, tag) {
  EXPECT_EQ(run({"tag", archive()}).out, "No tags.\n");
  const auto tag = [this](std::vector<std::string> words) {
    words.insert(words.begin(), {"tag", archive()});
    return run(words);
  };
  EXPECT_EQ(tag({"--add", "Wichtig", "--query", "from:anna"}).out,
            "Tagged 1 messages “Wichtig”.\n");
  EXPECT_EQ(tag({"--add", "wichtig", "--colour", "red", "--query="}).out,
            "Tagged 3 messages “Wichtig”.\n");
  EXPECT_EQ(tag({"--list"}).out, "3 messages   [red] Wichtig\n");
  EXPECT_EQ(tag({"--add", "Wichtig", "--query", "nowhere"}).out,
            "The query matched nothing; no tag was changed.\n");
  EXPECT_EQ(tag({"--remove", "WICHTIG", "--query", "from:anna"}).out,
            "Removed “Wichtig” from 1 messages.\n");
  EXPECT_EQ(tag({"--remove", "Nie", "--query", "from:anna"}).err, "error: no tag called “Nie”\n");
  EXPECT_EQ(tag({"--query", "from:anna", "--add"}).err, "error: A tag needs a name.\n");
  EXPECT_EQ(tag({"--add", "Alles"}).err, "error: --query <q> is required\n");
}

TEST_F(SearchCommands, smart) {
  const auto smart = [this](std::vector<std::string> words) {
    words.insert(words.begin(), {"smart", archive()});
    Result result = run(words);
    return timeless(result.out) + result.err;
  };
  const std::string usage =
      "error: usage: ambervane smart <archive> list|add|show|count|delete […]\n";
  for (const auto& words : std::vector<std::vector<std::string>>{{}, {"frob"}, {"delete"}}) {
    EXPECT_EQ(smart(words), usage);
  }
  EXPECT_EQ(smart({"add", "x"}), "error: usage: ambervane smart <archive> add <name> <query…>\n");
  EXPECT_EQ(smart({"show"}), "error: usage: ambervane smart <archive> show <name>\n");
  EXPECT_EQ(smart({"list"}), "No smart folders.\n");
  EXPECT_EQ(smart({"add", "Anna", "from:anna", "lieferung"}),
            "Saved smart folder “Anna”: Any text contains lieferung and Sender address contains "
            "anna or Sender name contains anna\n");
  EXPECT_EQ(smart({"add", "Alles", "from:"}),
            "Saved smart folder “Alles”: Any text contains from:\n");
  EXPECT_EQ(smart({"add", "Nichts", ""}), "error: that query has no usable rules: \n");
  EXPECT_EQ(smart({"add", "Nichts", "(larger:much)"}),
            "error: that query has no usable rules: (larger:much)\n");
  EXPECT_EQ(smart({"add", "ANNA", "x"}), "error: there is already a smart folder called “ANNA”\n");
  EXPECT_THAT(smart({"list"}), StartsWith("Anna  1\n"));
  EXPECT_EQ(smart({"count", "Anna"}), "Anna  1\n");
  EXPECT_THAT(smart({"show", "anna"}), StartsWith("1 matches in N ms\n2       2024-02-05 10:00 "));
  EXPECT_EQ(smart({"show", "anna", "--offset", "1"}), "1 matches in N ms\n");
  EXPECT_EQ(smart({"delete", "Anna"}), "Deleted smart folder “Anna”.\n");
  EXPECT_EQ(smart({"show", "Anna"}), "error: no smart folder called “Anna”\n");
}

TEST_F(SearchCommands, query) {
  const auto query = [this](std::vector<std::string> words) {
    words.insert(words.begin(), {"query", archive()});
    Result result = run(words);
    return timeless(result.out) + result.err;
  };
  const std::string sql = "--sql=SELECT id, from_name AS 'from, name' FROM message WHERE id < 3";
  EXPECT_EQ(query({sql}),
            "id  from, name\n--  ------------------------\n1   荒川健二と長い名前の人々\n2   Anna "
            "Beispiel\n2 rows in N ms\n");
  EXPECT_EQ(query({sql + " AND id > 1", "--format=csv"}),
            "id,\"from, name\"\n2,Anna Beispiel\n1 row in N ms\n");
  EXPECT_EQ(query({"--sql", "SELECT '=1' AS a, 'b' || char(9) AS b WHERE 1", "--format", "tsv"}),
            "a\tb\n'=1\tb \n1 row in N ms\n");
  EXPECT_THAT(query({"--sql",
                     "WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n "
                     "LIMIT 5001) SELECT x FROM n"}),
              EndsWith("\n5000 rows in N ms (truncated)\n"));
  EXPECT_THAT(query({"--schema"}), HasSubstr("\ntag: id, name, colour, created_at\n"));
  EXPECT_EQ(query({}), "error: --sql \"SELECT …\" is required, or --schema to see the tables\n");
  EXPECT_THAT(query({"--sql="}), StartsWith("error: Only SELECT is allowed here; this statement "
                                            "starts with nothing."));
}

TEST_F(SearchCommands, tableAndReindex) {
  const auto table = [this](std::vector<std::string> words) {
    words.insert(words.begin(), {"table", archive()});
    const Result result = run(words);
    return result.out + result.err;
  };
  EXPECT_EQ(table({"--out", at("t.csv"), "--query", "from:anna"}),
            "Wrote 1 rows to " + at("t.csv") +
                "\nThe bodies stay in the archive; `sha256` ties each row to its record.\n");
  EXPECT_THAT(readFile(folder_ / "t.csv"), StartsWith("id,sha256,"));
  EXPECT_EQ(table({}), "error: --out <file> is required\n");
  EXPECT_EQ(table({"--out", at("t"), "--format", "odd"}),
            "error: --format takes csv, tsv or sql\n");
  EXPECT_THAT(table({"--out", archive() + "/catalog.sqlite"}),
              EndsWith(" lies inside the archive; choose a place outside or in its folder "
                       "“export”\n"));
  EXPECT_THAT(table({"--out", archive() + "/export/t.csv"}), StartsWith("Wrote 3 rows to "));

  const Result rebuilt = run({"reindex", archive()}, true);
  EXPECT_EQ(rebuilt.out, "Rebuilt the search index over 3 messages.\n");
  EXPECT_EQ(rebuilt.err, "\r  reindexed 1/3\x1b[K\r\x1b[K");
}

/// What a command prints to somebody who may read the archive and no more. The superuser may write
/// everything, so it happens in a process of its own.
std::string asStranger(const std::vector<std::string>& words) {
  int ends[2] = {};
  EXPECT_EQ(::pipe(ends), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::geteuid() == 0 && ::setuid(65534) != 0) ::_exit(3);
    const Result result = run(words);
    const std::string text = timeless(result.out) + result.err;
    ::_exit(::write(ends[1], text.data(), text.size()) < 0 ? 4 : result.status);
  }
  ::close(ends[1]);
  std::string text(8192, '\0');
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(::read(ends[0], text.data(), 8192), 0)));
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  return text;
}

TEST_F(SearchCommands, workWhereNothingCanBeWritten) {
  run({"tag", archive(), "--add", "T", "--query", "from:anna"});
  run({"smart", archive(), "add", "F", "from:anna"});
  const auto forEachFile = [this](fs::perms remove, fs::perms add) {
    for (const auto& entry : fs::recursive_directory_iterator(folder_.path())) {
      if (entry.is_regular_file()) clearImmutable(entry.path());
      fs::permissions(entry, remove, fs::perm_options::remove);
      fs::permissions(entry, add | (entry.is_directory() ? fs::perms::others_exec : fs::perms()),
                      fs::perm_options::add);
    }
    fs::permissions(folder_.path(), fs::perms(0755));
  };
  const std::int64_t before = journalEntries();
  forEachFile(fs::perms::owner_write, fs::perms::others_read);
  fs::permissions(folder_ / "a.ambervane/keys", fs::perms::others_all, fs::perm_options::remove);

  const std::string note =
      "Note: a.ambervane is kept where nothing can be written, so it is open read-only and nothing "
      "done here is recorded in its journal.\n";
  const std::string unrecorded =
      "Note : not recorded in the archive's journal — it is kept where nothing can be written\n";
  const std::string hit = "2       2024-02-05 10:00    Anna Beispiel                Lieferung 1\n";
  EXPECT_EQ(asStranger({"search", archive(), "lieferung"}),
            "1 matches in N ms (full text)\n" + hit + unrecorded + note);
  EXPECT_EQ(asStranger({"smart", archive(), "show", "F"}),
            "1 matches in N ms\n" + hit + unrecorded + note);
  EXPECT_EQ(asStranger({"query", archive(), "--sql", "SELECT 1 AS x"}),
            "x\n-\n1\n1 row in N ms\n" + unrecorded + note);
  EXPECT_EQ(asStranger({"tag", archive(), "--list"}), "1 messages   [blue] T\n" + note);
  forEachFile(fs::perms(), fs::perms::owner_write);
  EXPECT_EQ(journalEntries(), before);
}

TEST(DisplayColumns, cutBetweenCharacters) {
  static const struct {
    const char* name;
    std::string text;
    std::size_t width;
    std::string inFour;  // cut to four columns
  } kCases[] = {
      {"ascii", "abcdef", 6, "abcd"},
      {"umlaut", "äöüßx", 5, "äöüß"},
      {"combining", "a\u0308o\u0308u\u0308x\u0308y", 5, "a\u0308o\u0308u\u0308x\u0308"},
      {"wide", "荒川健二", 8, "荒川"},
      {"wideAtTheEdge", "a荒川健", 7, "a荒"},
      {"fullWidthLatin", "ＡＢＣ", 6, "ＡＢ"},
      {"hangulParts", "\u1112\u1161\u11ab\u1100\u1173\u11afa", 5,
       "\u1112\u1161\u11ab\u1100\u1173\u11af"},
      {"emoji", "📎📎📎", 6, "📎📎"},
      {"family", "a👨‍👩‍👧bc", 5, "a👨‍👩‍👧b"},
      {"skin", "👍🏽👍🏽👍", 6, "👍🏽👍🏽"},
      {"flags", "🇨🇭🇩🇪🇪🇺", 6, "🇨🇭🇩🇪"},
      {"presentation", "☀️☀️☀️", 6, "☀️☀️"},
      {"devanagari", "नमस्ते", 4, "नमस्ते"},
      {"mark first", "\u0308abcde", 5, "\u0308abcd"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(displayWidth(c.text), c.width);
    EXPECT_EQ(cutToWidth(c.text, 4), c.inFour);
    EXPECT_EQ(displayWidth(fitted(c.text, 4)), 4U);
    EXPECT_EQ(cutToCharacters(c.text, 100), c.text);
  }
  EXPECT_EQ(cutToCharacters("👨‍👩‍👧ä🇨🇭x", 3), "👨‍👩‍👧ä🇨🇭");
  const std::string accents = "a" + [] {
    std::string marks;
    for (int i = 0; i < 10000; ++i) marks += "\u0308";
    return marks;
  }();
  EXPECT_LT(cutToCharacters(accents, 1).size(), 100U);
}

}  // namespace
}  // namespace ambervane
