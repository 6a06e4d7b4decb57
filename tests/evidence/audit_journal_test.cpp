#include "evidence/audit_journal.h"

#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <limits>

#include "base/text.h"
#include "tests/support/file_faults.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

class AuditJournalTest : public ::testing::Test {
 protected:
  AuditJournal make(bool writable = true, LockFunction lockFile = systemFileLock) const {
    return AuditJournal(
        url_, [] { return "anna@host"; }, writable, std::move(lockFile),
        [] { return Date{1772360130.25}; });
  }
  /// Three entries, with their line feeds.
  std::vector<std::string> makeThree() const {
    AuditJournal journal = make();
    journal.append(AuditAction::archiveCreated);
    journal.append(AuditAction::messageIngested, "message 1", {{"folder", "INBOX"}});
    journal.append(AuditAction::chainSealed, "1");
    std::vector<std::string> lines;
    const std::string bytes = contents();
    for (const std::string_view line : splitOmittingEmpty(bytes, "\n")) {
      lines.push_back(std::string(line) + "\n");
    }
    return lines;
  }
  std::string contents() const { return readFile(url_); }
  /// Without a flush, because some tests do this a thousand times.
  void put(const std::string& bytes) const { std::ofstream(url_, std::ios::binary) << bytes; }
  static std::vector<std::int64_t> sequence(const AuditJournal& journal) {
    std::vector<std::int64_t> found;
    journal.forEachEntry([&](const AuditEntry& entry) {
      found.push_back(entry.seq);
      return true;
    });
    return found;
  }

  const ScratchFolder folder_;
  const fs::path url_ = folder_ / "archive/chain/journal.jsonl";
};

TEST_F(AuditJournalTest, createsWhatIsMissing) {
  AuditJournal journal = make();
  EXPECT_EQ(contents(), "");
  EXPECT_EQ(fs::status(url_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(journal.head(), genesisHash());
  const AuditEntry entry = journal.append(AuditAction::archiveCreated, {}, {{"name", "a"}}, "ben");
  EXPECT_EQ(contents(), encodeAuditEntry(entry) + "\n");
  EXPECT_EQ(entry.seq, 1);
  EXPECT_EQ(entry.actor, "ben");
  EXPECT_EQ(entry.previousHash, genesisHash());
  EXPECT_EQ(journal.head(), entry.entryHash);
  EXPECT_EQ(make().head(), entry.entryHash);
  EXPECT_EQ(make().append(AuditAction::packSealed).actor, "anna@host");
}

TEST_F(AuditJournalTest, readOnlyOpening) {
  EXPECT_EQ(make(false).count(), 0);
  EXPECT_FALSE(fs::exists(url_.parent_path()));
  makeThree();
  AuditJournal journal = make(false);
  EXPECT_EQ(journal.count(), 3);
  EXPECT_FALSE(journal.isWritable());
  journal.beginBatch();
  journal.endBatch();
  journal.synchronize();
  try {
    journal.append(AuditAction::messageRead);
    FAIL();
  } catch (const JournalError& error) {
    EXPECT_STREQ(error.what(),
                 "This archive is kept where nothing can be written, so nothing can be recorded in "
                 "its journal");
  }
}

TEST_F(AuditJournalTest, unreadableJournalIsNotCarriedOn) {
  fs::create_directories(url_);
  EXPECT_THROW(make(), FileError);
  EXPECT_EQ(make(false).count(), 0);
}

TEST_F(AuditJournalTest, whatIsHashedReadsBack) {
  double now = 0;
  AuditJournal journal(
      url_, [] { return "a\xc3"; }, true, systemFileLock, [&] { return Date{now}; });
  for (const double time : {0.1 + 0.2, -0.0, 1772360131.0000005, 1e-7, 9.007199254740993e15, 1e300,
                            -0.5, 5e-324, 253402300799.9999}) {
    now = time;
    const AuditEntry entry = journal.append(AuditAction::noteAdded,
                                            std::string("\0\x01\x7f\r\n\"\\/=\xff\xed\xa0\x80", 14),
                                            {{"\xe2\x80\xa8", "\xf0\x9f\x93\xa7"}, {"k\xff", ""}});
    EXPECT_EQ(journal.recent(1).at(0), entry) << time;
  }
  EXPECT_EQ(journal.verify().message, "Chain intact across 9 entries");
}

TEST_F(AuditJournalTest, verificationFindsTheFirstFault) {
  const auto lines = makeThree();
  const auto edited = [&](std::size_t line, std::string_view from, std::string_view to) {
    std::string text = lines[line];
    return text.replace(text.find(from), from.size(), to);
  };
  // An entry that is right in itself, of another chain.
  AuditEntry foreign = *decodeAuditEntry(lines[1]);
  foreign.previousHash = std::string(64, 'a');
  foreign.entryHash = computeEntryHash(foreign);
  const std::string strange = encodeAuditEntry(foreign) + "\n";
  const std::string noFeed = lines[2].substr(0, lines[2].size() - 1);

  const struct {
    const char* name;
    std::string bytes;
    std::int64_t checked;
    std::optional<std::int64_t> bad;
    const char* message;
  } kCases[] = {
      {"intact", lines[0] + lines[1] + lines[2], 3, {}, "Chain intact across 3 entries"},
      {"noFinalFeed", lines[0] + lines[1] + noFeed, 3, {}, "Chain intact across 3 entries"},
      {"blankLines", "\n\n" + lines[0] + "\n" + lines[1], 2, {}, "Chain intact across 2 entries"},
      {"onlyBlank", "\n\n\n", 0, {}, "Chain intact across 0 entries"},
      {"empty", "", 0, {}, "Chain intact across 0 entries"},
      {"tailCutOff", lines[0] + lines[1], 2, {}, "Chain intact across 2 entries"},
      {"garbage", lines[0] + "x\n" + lines[1], 1, 2, "Malformed journal entry at position 2"},
      {"torn", lines[0] + lines[1] + lines[2].substr(0, 50), 2, 3,
       "Malformed journal entry at position 3"},
      {"removed", lines[0] + lines[2], 1, 3, "Sequence gap: expected 2, found 3"},
      {"firstRemoved", lines[1] + lines[2], 0, 2, "Sequence gap: expected 1, found 2"},
      {"repeated", lines[0] + lines[0], 1, 1, "Sequence gap: expected 2, found 1"},
      {"renumbered", lines[0] + edited(1, "\"seq\":2", "\"seq\":5"), 1, 5,
       "Sequence gap: expected 2, found 5"},
      {"replaced", lines[0] + strange + lines[2], 1, 2, "Chain break at entry 2"},
      {"editedDetail", lines[0] + edited(1, "INBOX", "inbox") + lines[2], 1, 2,
       "Entry 2 has been modified"},
      {"editedTime", edited(0, "130.25", "130.26") + lines[1], 0, 1, "Entry 1 has been modified"},
      {"editedHash", edited(0, "entryHash\":\"", "entryHash\":\"0") + lines[1], 0, 1,
       "Entry 1 has been modified"},
      {"editedAction", lines[0] + edited(1, "message.ingested", "message.duplicate"), 1, 2,
       "Entry 2 has been modified"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    put(c.bytes);
    const VerificationResult result = make(false).verify();
    EXPECT_EQ(result.message, c.message);
    EXPECT_EQ(result.ok, !c.bad);
    EXPECT_EQ(result.firstBadSeq, c.bad);
    EXPECT_EQ(result.entriesChecked, c.checked);
    const auto at = static_cast<std::size_t>(c.checked);
    EXPECT_EQ(result.head, at == 0 ? genesisHash() : decodeAuditEntry(lines[at - 1])->entryHash);
    EXPECT_EQ(result.finding->message().text(), c.message);
  }
  fs::remove(url_);
  const VerificationResult missing = make(false).verify();
  EXPECT_FALSE(missing.ok);
  EXPECT_EQ(missing.firstBadSeq, std::nullopt);
  EXPECT_EQ(missing.finding, Finding(Finding::Verbatim{"Journal missing or unreadable"}));
  EXPECT_EQ(missing.head, genesisHash());
}

TEST_F(AuditJournalTest, fileCutAtEveryByte) {
  const auto lines = makeThree();
  const std::string all = lines[0] + lines[1] + lines[2];
  for (std::size_t length = 0; length <= all.size(); ++length) {
    SCOPED_TRACE(length);
    put(all.substr(0, length));
    // A line is whole without its line feed too.
    std::int64_t whole = 0;
    std::size_t end = 0;
    while (whole < 3 && length + 1 >= end + lines[static_cast<std::size_t>(whole)].size()) {
      end += lines[static_cast<std::size_t>(whole++)].size();
    }
    AuditJournal journal = make();
    ASSERT_EQ(journal.count(), whole);
    EXPECT_EQ(contents().size(), length) << "opening changes nothing";
    journal.beginBatch();
    const AuditEntry next = journal.append(AuditAction::noteAdded);
    ASSERT_EQ(next.seq, whole + 1);
    EXPECT_EQ(contents().substr(0, length), all.substr(0, length));
    const VerificationResult result = journal.verify();
    const bool torn = length > end;
    EXPECT_EQ(result.ok, !torn);
    EXPECT_EQ(result.entriesChecked, torn ? whole : whole + 1);
    EXPECT_EQ(journal.recent(1).at(0), next);
  }
}

TEST_F(AuditJournalTest, diskFullAtEveryByte) {
  const std::size_t size = makeThree()[2].size();
  const std::string before = contents();
  for (std::size_t room = 0; room < size; ++room) {
    SCOPED_TRACE(room);
    put(before);
    AuditJournal journal = make();
    journal.beginBatch();
    {
      const FullDisk full(room);
      ASSERT_THROW(journal.append(AuditAction::chainSealed, "2"), FileError);
    }
    EXPECT_EQ(journal.count(), 3);
    journal.append(AuditAction::noteRemoved);
    // A line that lacks nothing but its feed is an entry all the same.
    const bool recorded = room == size - 1;
    EXPECT_EQ(sequence(journal), recorded ? std::vector<std::int64_t>({1, 2, 3, 4, 5})
                                          : std::vector<std::int64_t>({1, 2, 3, 4}));
    EXPECT_EQ(journal.verify().ok, room == 0 || recorded);
  }
}

TEST_F(AuditJournalTest, flushThatFails) {
  makeThree();
  AuditJournal journal = make();
  const std::string head = journal.head();
  {
    const FailingSync failing;
    EXPECT_THROW(journal.append(AuditAction::noteAdded), FileError);
    EXPECT_EQ(journal.head(), head);
    journal.beginBatch();
    journal.append(AuditAction::noteAdded);
    journal.synchronize();
    EXPECT_THROW(journal.endBatch(), FileError);
    EXPECT_THROW(journal.append(AuditAction::noteAdded), FileError) << "the batch is over";
  }
  EXPECT_EQ(journal.append(AuditAction::noteRemoved).seq, 7);
  EXPECT_TRUE(journal.verify().ok);
}

TEST_F(AuditJournalTest, batchFlushesOnce) {
  AuditJournal journal = make();
  std::string steps;
  const FileSteps hook([&](const FileStep& s) {
    steps += s.kind == FileStep::Kind::sync ? 's' : 'w';
    return s.bytes;
  });
  journal.append(AuditAction::importStarted);
  journal.beginBatch();
  journal.append(AuditAction::messageIngested);
  journal.append(AuditAction::messageIngested);
  journal.synchronize();
  journal.append(AuditAction::messageIngested);
  journal.endBatch();
  journal.append(AuditAction::importFinished);
  EXPECT_EQ(steps, "wswwswsws");
}

TEST_F(AuditJournalTest, processesTakeTurns) {
  constexpr int kProcesses = 4;
  constexpr int kEntries = 150;
  make();
  for (int process = 0; process < kProcesses; ++process) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child != 0) continue;
    AuditJournal journal = make();
    journal.beginBatch();
    for (int i = 0; i < kEntries; ++i) {
      journal.append(AuditAction::noteAdded, std::to_string(process));
    }
    ::_exit(0);
  }
  for (int process = 0; process < kProcesses; ++process) {
    int status = 1;
    ::wait(&status);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(make().verify().message, "Chain intact across 600 entries");
}

TEST_F(AuditJournalTest, fileLock) {
  const struct {
    const char* name;
    std::vector<int> errors;  ///< of the calls in turn; 0 and any further: success
    const char* calls;
  } kCases[] = {
      {"granted", {0}, "LU"},
      {"interrupted", {EINTR, EINTR, 0}, "LLLU"},
      {"refused", {ENOLCK}, "L"},
      {"interruptedThenRefused", {EINTR, EOPNOTSUPP}, "LL"},
  };
  for (const auto& c : kCases) {
    for (const bool diskFull : {false, true}) {
      SCOPED_TRACE(std::string(c.name) + (diskFull ? ", disk full" : ""));
      std::string calls;
      AuditJournal journal = make(true, [&](int, int operation) {
        calls += operation == LOCK_EX ? 'L' : operation == LOCK_UN ? 'U' : '?';
        if (calls.size() > c.errors.size()) return 0;
        errno = c.errors[calls.size() - 1];
        return errno == 0 ? 0 : -1;
      });
      const auto before = journal.count();
      if (diskFull) {
        const FullDisk full(0);
        EXPECT_THROW(journal.append(AuditAction::noteAdded), FileError);
      } else {
        EXPECT_EQ(journal.append(AuditAction::noteAdded).seq, before + 1);
      }
      EXPECT_EQ(calls, c.calls);
    }
  }
}

TEST_F(AuditJournalTest, readingOrders) {
  const auto lines = makeThree();
  put(lines[0] + "damaged\n\n" + lines[1] + lines[2] + lines[1].substr(0, 30));
  const AuditJournal journal = make(false);
  const auto seqs = [](const std::vector<AuditEntry>& entries) {
    std::vector<std::int64_t> found;
    for (const AuditEntry& entry : entries) found.push_back(entry.seq);
    return found;
  };
  using Seqs = std::vector<std::int64_t>;
  EXPECT_EQ(seqs(journal.recent(10)), (Seqs{3, 2, 1}));
  EXPECT_EQ(seqs(journal.recent(2)), (Seqs{3, 2}));
  EXPECT_EQ(seqs(journal.recent(0)), Seqs{});
  EXPECT_EQ(seqs(journal.recent(10, AuditAction::messageIngested)), Seqs{2});
  EXPECT_EQ(seqs(journal.recent(10, AuditAction::noteAdded)), Seqs{});
  EXPECT_EQ(seqs(journal.allEntries(10)), (Seqs{1, 2, 3}));
  EXPECT_EQ(seqs(journal.allEntries(2)), (Seqs{1, 2}));
  EXPECT_EQ(seqs(journal.allEntries(0)), Seqs{});
  int calls = 0;
  journal.forEachEntry([&](const AuditEntry&) { return ++calls < 2; });
  EXPECT_EQ(calls, 2);
}

TEST_F(AuditJournalTest, recentLooksAtABoundedNumberOfLines) {
  const std::string first = makeThree()[0];
  for (const std::size_t behind : {199'999u, 200'000u}) {
    std::string bytes = first;
    for (std::size_t i = 0; i < behind; ++i) bytes += "{}\n\n";
    put(bytes);
    EXPECT_EQ(make(false).recent(1).size(), behind < 200'000 ? 1u : 0u);
  }
}

TEST_F(AuditJournalTest, highestNumberOverflowsIntoAGap) {
  makeThree();
  AuditEntry entry;
  entry.seq = std::numeric_limits<std::int64_t>::max();
  entry.entryHash = genesisHash();
  put(contents() + encodeAuditEntry(entry) + "\n");
  AuditJournal journal = make();
  journal.append(AuditAction::noteAdded);
  EXPECT_EQ(journal.verify().message, "Sequence gap: expected 4, found 9223372036854775807");
}

}  // namespace
}  // namespace ambervane
