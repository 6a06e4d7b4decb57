#include "store/recovery_index.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/support/file_faults.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

using Entry = RecoveryIndex::Entry;
using Message = RecoveryIndex::Message;
using Blob = RecoveryIndex::Blob;

const Message kMessage{16,        "cf69",     "INBOX",     "me@example.org", 42, "seen flagged",
                       Date{1e9}, "business", std::nullopt};
const Blob kBlob{66, "b12e", "0ddd", 84, R"({"lineLength":76})"};

std::vector<Entry> parsed(BytesView text) {
  std::vector<Entry> entries;
  RecoveryIndex::parse(text, [&](const Entry& entry) { entries.push_back(entry); });
  return entries;
}

std::vector<Entry> readBack(const std::filesystem::path& pack) {
  std::vector<Entry> entries;
  RecoveryIndex::read(pack, [&](const Entry& entry) { entries.push_back(entry); });
  return entries;
}

TEST(RecoveryIndex, documentedBytes) {
  const ScratchFolder folder;
  const auto pack = folder.path() / "00000001.pack";
  RecoveryIndex index(pack);
  index.appendMessage(kMessage);
  index.appendBlob(kBlob);
  index.appendMessage({.offset = 170, .hash = "cf6a", .folder = "a\tb\\c\nd", .blockMember = 3});
  index.appendBlob({.offset = 200, .hash = "b12f", .encodedSize = 5000});
  index.synchronize();
  index.close();
  EXPECT_EQ(readFile(folder.path() / "00000001.idx"),
            "m\t16\tcf69\tINBOX\tme@example.org\t42\tseen flagged\t1000000000\tbusiness\t\n"
            "b\t66\tb12e\t0ddd\t84\t{\"lineLength\":76}\n"
            "m\t170\tcf6a\ta\\tb\\\\c\\nd\t\t\t\t\t\t3\n"
            "b\t200\tb12f\t\t5000\t\n");
  EXPECT_EQ(readBack(pack),
            (std::vector<Entry>{
                kMessage, kBlob,
                Message{.offset = 170, .hash = "cf6a", .folder = "a\tb\\c\nd", .blockMember = 3},
                Blob{.offset = 200, .hash = "b12f", .encodedSize = 5000}}));
}

TEST(RecoveryIndex, lines) {
  static const struct {
    const char* name;
    Bytes text;
    std::vector<Entry> entries;
  } kCases[] = {
      {"empty", "", {}},
      {"emptyLines", "\n\n\n", {}},
      {"withoutFinalLineFeed",
       "b\t1\th\t\t5\t",
       {Blob{.offset = 1, .hash = "h", .encodedSize = 5}}},
      {"nineFields",
       "m\t1\th\tf\ta\t\t\t\tc\n",
       {Message{.offset = 1, .hash = "h", .folder = "f", .account = "a", .retentionClass = "c"}}},
      {"moreFieldsThanKnown",
       "m\t1\th\tf\t\t\t\t\t\t2\tlater\n",
       {Message{.offset = 1, .hash = "h", .folder = "f", .blockMember = 2}}},
      {"eightFields", "m\t1\th\tf\ta\t\t\t\n", {}},
      {"fiveFieldBlob", "b\t1\th\t\t5\n", {}},
      {"twoFields", "b\t1\n", {}},
      {"otherKind", "x\t1\th\t\t5\t\nM\t1\th\tf\ta\t\t\t\tc\n", {}},
      {"badOffset", "b\tx\th\t\t5\t\nb\t\th\t\t5\t\nb\t-1\th\t\t5\t\n", {}},
      {"offsetTooLarge", "b\t9223372036854775808\th\t\t5\t\n", {}},
      {"badNumbersAreAbsent",
       "m\t1\th\tf\ta\tx\t\tnan\tc\t?\nb\t1\th\t\tx\t\n",
       {Message{.offset = 1, .hash = "h", .folder = "f", .account = "a", .retentionClass = "c"},
        Blob{.offset = 1, .hash = "h"}}},
      {"negativeDate",
       "m\t1\th\t\t\t\t\t-86400\t\n",
       {Message{.offset = 1, .hash = "h", .internalDate = Date{-86400}}}},
      {"unknownEscapesStay",
       "m\t1\th\t\\x\\\\n\\\t\t\t\t\t\n",
       {Message{.offset = 1, .hash = "h", .folder = "\\x\\n\\"}}},
      {"illFormedUtf8",
       "m\t1\th\ta\xff\t\t\t\t\t\n",
       {Message{.offset = 1, .hash = "h", .folder = "a\xef\xbf\xbd"}}},
      {"carriageReturnStays",
       "m\t1\th\ta\rb\t\t\t\t\t\n",
       {Message{.offset = 1, .hash = "h", .folder = "a\rb"}}},
      {"goesOnBehindDamage",
       Bytes("\0\xff\t\t\nb\t1\th\t\t5\t\n", 15),
       {Blob{.offset = 1, .hash = "h", .encodedSize = 5}}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(parsed(c.text), c.entries);
  }
}

TEST(RecoveryIndex, missingSidecarHasNoEntries) {
  const ScratchFolder folder;
  EXPECT_TRUE(readBack(folder.path() / "00000001.pack").empty());
  createFolders(folder.path() / "00000002.idx");
  EXPECT_TRUE(readBack(folder.path() / "00000002.pack").empty());
}

TEST(RecoveryIndex, dateWithoutAFiniteValueIsLeftOut) {
  const ScratchFolder folder;
  const auto pack = folder.path() / "00000001.pack";
  RecoveryIndex index(pack);
  for (const double seconds :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), 1.75}) {
    index.appendMessage({.offset = 1, .hash = "h", .internalDate = Date{seconds}});
  }
  const auto entries = readBack(pack);
  ASSERT_EQ(entries.size(), 3U);
  EXPECT_EQ(std::get<Message>(entries[0]).internalDate, std::nullopt);
  EXPECT_EQ(std::get<Message>(entries[1]).internalDate, std::nullopt);
  EXPECT_EQ(std::get<Message>(entries[2]).internalDate, Date{2});
}

TEST(RecoveryIndex, diskFullAtEveryByte) {
  static constexpr std::size_t kLineBytes = 68;  // of kMessage
  for (std::size_t room = 0; room < kLineBytes; ++room) {
    for (const bool reopen : {false, true}) {
      SCOPED_TRACE(std::to_string(room) + (reopen ? " reopened" : " same process"));
      const ScratchFolder folder;
      const auto pack = folder.path() / "00000001.pack";
      std::optional<RecoveryIndex> index(pack);
      index->appendBlob(kBlob);
      {
        const FullDisk full(room);
        EXPECT_THROW(index->appendMessage(kMessage), FileError);
      }
      if (reopen) index.emplace(pack);
      index->appendBlob(kBlob);
      index->appendBlob(kBlob);
      std::vector<Entry> entries = readBack(pack);
      ASSERT_GE(entries.size(), 3U);
      EXPECT_LE(entries.size(), 4U) << "the cut line counts once it has enough fields";
      EXPECT_EQ(entries.front(), Entry(kBlob));
      EXPECT_EQ(entries.back(), Entry(kBlob));
      EXPECT_EQ(entries[entries.size() - 2], Entry(kBlob)) << "begins on a line of its own";
    }
  }
}

}  // namespace
}  // namespace ambervane
