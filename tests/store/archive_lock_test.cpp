#include "store/archive_lock.h"

#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "store/archive_error.h"
#include "tests/support/file_faults.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

const Date kNow{1772360130};

/// The holder a refused second lock names; fails the test when it is not refused.
std::optional<std::string> refusedBy(const std::filesystem::path& archive) {
  try {
    const ArchiveLock second(archive, kNow);
    ADD_FAILURE() << "the lock was given twice";
  } catch (const ArchiveError& error) {
    EXPECT_TRUE(error.is<ArchiveError::LockedByAnother>());
    return std::get<ArchiveError::LockedByAnother>(error.reason()).holder;
  }
  return std::nullopt;
}

TEST(ArchiveLock, oneHolderAtATime) {
  const ScratchFolder folder;
  {
    const ArchiveLock lock(folder.path(), kNow);
    EXPECT_FALSE(lock.unsupported());
    const auto holder = ArchiveLock::readHolder(folder.path());
    ASSERT_TRUE(holder);
    EXPECT_EQ(holder->processID, ::getpid());
    EXPECT_EQ(holder->acquiredAt, kNow);
    EXPECT_EQ(refusedBy(folder.path()), holder->description());
    EXPECT_EQ(ArchiveLock::readHolder(folder.path()), holder) << "the refused left it alone";
  }
  EXPECT_EQ(readFile(folder.path() / "lock"), "") << "emptied, and still there";
  EXPECT_NO_THROW(ArchiveLock(folder.path(), kNow));
}

TEST(ArchiveLock, holderRecords) {
  const ScratchFolder folder;
  static constexpr const char* kGood =
      R"({"processID":12,"hostName":"desk","userName":"ann","acquiredAt":"2026-03-01T10:15:30Z",)"
      R"("application":"ambervane"})";
  static constexpr struct {
    const char* name;
    const char* text;
    std::optional<const char*> description;
  } kCases[] = {
      {"good", kGood, "ambervane (process 12) on desk, as ann"},
      {"empty", "", std::nullopt},
      {"noJson", "{", std::nullopt},
      {"array", "[]", std::nullopt},
      {"missingKeys", R"({"processID":12})", std::nullopt},
      {"badDate",
       R"({"processID":12,"hostName":"","userName":"","acquiredAt":"now","application":""})",
       std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    writeFileAtomically(folder.path() / "lock", c.text);
    const auto holder = ArchiveLock::readHolder(folder.path());
    ASSERT_EQ(holder.has_value(), c.description.has_value());
    if (holder) {
      EXPECT_EQ(holder->description(), *c.description);
    }
    EXPECT_NO_THROW(ArchiveLock(folder.path(), kNow)) << "a record left by a crash blocks nobody";
  }
}

TEST(ArchiveLock, whatTheSystemAnswers) {
  static constexpr struct {
    const char* name;
    std::vector<int> (*answers)();  ///< errno values of the calls in order, then success
    bool unsupported;
  } kCases[] = {
      {"interrupted",
       [] {
         return std::vector{EINTR, EINTR};
       },
       false},
      {"notSupported", [] { return std::vector{ENOTSUP}; }, true},
      {"noLocksLeft", [] { return std::vector{ENOLCK}; }, true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const ScratchFolder folder;
    std::vector<int> answers = c.answers();
    const auto scripted = [&answers](int, int operation) {
      if (operation == LOCK_UN || answers.empty()) return 0;
      errno = answers.front();
      answers.erase(answers.begin());
      return -1;
    };
    const ArchiveLock lock(folder.path(), kNow, scripted);
    EXPECT_EQ(lock.unsupported(), c.unsupported);
    EXPECT_EQ(lock.unsupportedReason().value_or("").empty(), !c.unsupported);
    EXPECT_TRUE(ArchiveLock::readHolder(folder.path())) << "written in either case";
  }
}

TEST(ArchiveLock, fileThatCannotBeOpened) {
  const ScratchFolder folder;
  try {
    const ArchiveLock lock(folder.path() / "missing", kNow);
    FAIL();
  } catch (const ArchiveError& error) {
    EXPECT_EQ(std::get<ArchiveError::LockUnavailable>(error.reason()).reason,
              "No such file or directory");
  }
}

TEST(ArchiveLock, fullDiskCostsOnlyTheRecord) {
  const ScratchFolder folder;
  const FullDisk full(10);
  const ArchiveLock lock(folder.path(), kNow);
  EXPECT_EQ(ArchiveLock::readHolder(folder.path()), std::nullopt);
  EXPECT_EQ(refusedBy(folder.path()), std::nullopt) << "held, by an unknown";
}

}  // namespace
}  // namespace ambervane
