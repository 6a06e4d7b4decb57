#include "platform/immutable_flag.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "base/file.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

class ImmutableFlag : public ::testing::Test {
 protected:
  ImmutableFlag() { std::ofstream(file_) << "text"; }
  ~ImmutableFlag() override {
    clearImmutable(file_);
    std::error_code ignored;
    fs::remove(file_, ignored);
  }
  const fs::path file_ =
      fs::temp_directory_path() / ("ambervane-flag-" + std::to_string(::getpid()));
};

TEST_F(ImmutableFlag, saysWhatTheSystemReallyDoes) {
  EXPECT_FALSE(isImmutable(file_));
  const bool set = setImmutable(file_);
  EXPECT_EQ(isImmutable(file_), set);
  if (set) {
    EXPECT_THROW(AppendFile::open(file_).append("more"), FileError);
    EXPECT_THROW(writeFileAtomically(file_, "other"), FileError);
    std::error_code error;
    EXPECT_FALSE(fs::remove(file_, error));
    EXPECT_TRUE(setImmutable(file_)) << "a second time changes nothing";
    EXPECT_TRUE(clearImmutable(file_));
    EXPECT_FALSE(isImmutable(file_));
  }
  AppendFile::open(file_).append(" and more");
  EXPECT_EQ(readFile(file_), "text and more");
}

TEST_F(ImmutableFlag, unprivilegedUser) {
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // Whoever is not root already is the one meant.
    const bool refused = (::geteuid() != 0 || ::setuid(65534) == 0) && !setImmutable(file_);
    ::_exit(refused ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(isImmutable(file_));
}

TEST_F(ImmutableFlag, refusalsAreAnswers) {
  const fs::path fifo = file_.native() + ".fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (const fs::path& path : {fs::path("/nowhere/at/all"), fs::path("/proc/self/status"), fifo}) {
    SCOPED_TRACE(path);
    EXPECT_FALSE(isImmutable(path));
    EXPECT_FALSE(setImmutable(path));
    EXPECT_FALSE(clearImmutable(path));
  }
  fs::remove(fifo);
}

}  // namespace
}  // namespace ambervane
