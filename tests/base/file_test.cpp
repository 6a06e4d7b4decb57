#include "base/file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "tests/support/file_faults.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

TEST(File, atomicReplacementIsWholeOrNotAtAll) {
  const ScratchFolder folder;
  const fs::path path = folder / "a file #1?.json";
  writeFileAtomically(path, "old", 0600);
  // The steps are create, write, sync, rename, and the folder's sync.
  for (int failing = 0; failing < 5; ++failing) {
    SCOPED_TRACE(failing);
    int step = 0;
    {
      const FileSteps hook([&](const FileStep& s) -> std::size_t {
        if (step++ == failing) throw FileError(FileError::Action::write, s.path, EIO);
        return s.bytes;
      });
      EXPECT_THROW(writeFileAtomically(path, "new"), FileError);
    }
    EXPECT_EQ(readFile(path), failing < 4 ? "old" : "new");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
  }
}

TEST(File, appendTellsAFullDiskAndGoesOnBehindTheFragment) {
  const ScratchFolder folder;
  AppendFile file = AppendFile::open(folder / "log");
  file.append("one\n");
  {
    const FullDisk full(2);
    try {
      file.append("two\n");
      FAIL() << "a full disk went unnoticed";
    } catch (const FileError& error) {
      EXPECT_EQ(error.error(), ENOSPC);
      EXPECT_EQ(error.action(), FileError::Action::write);
    }
  }
  EXPECT_EQ(file.size(), 6U);
  file.append("\nthree\n");
  EXPECT_EQ(readFile(folder / "log"), "one\ntw\nthree\n");
}

TEST(File, modesAndErrorsNameTheFile) {
  const ScratchFolder folder;
  writeFileAtomically(folder / "key", "secret", 0600);
  struct stat info {};
  ASSERT_EQ(::stat((folder / "key").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);
  EXPECT_FALSE(readFileIfPossible(folder / "missing"));
  try {
    readFile(folder / "two\nlines");
    FAIL();
  } catch (const FileError& error) {
    EXPECT_NE(std::string(error.what()).find("two\\nlines: No such file"), std::string::npos)
        << error.what();
  }
}

TEST(File, theUsersUmaskHolds) {
  const ScratchFolder folder;
  const mode_t before = ::umask(077);
  writeFileAtomically(folder / "private", "x");
  ::umask(before);
  struct stat info {};
  ASSERT_EQ(::stat((folder / "private").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST(File, mapping) {
  const ScratchFolder folder;
  writeFileAtomically(folder / "empty", "");
  EXPECT_EQ(MappedFile::open(folder / "empty")->bytes(), "");
  writeFileAtomically(folder / "full", Bytes(100000, 'x'));
  const auto mapped = MappedFile::open(folder / "full");
  mapped->forgetBefore(65536);
  EXPECT_EQ(mapped->bytes(), Bytes(100000, 'x'));
  EXPECT_THROW(MappedFile::open(folder.path()), FileError);
}

}  // namespace
}  // namespace ambervane
