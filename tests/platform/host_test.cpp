#include "platform/host.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "base/text.h"

namespace ambervane {
namespace {

TEST(Host, namesThisProcess) {
  EXPECT_EQ(processName(), "platform_tests");
  for (const std::string& name : {localHostName(), loginUserName()}) {
    EXPECT_FALSE(name.empty());
    EXPECT_TRUE(isValidUtf8(name));
  }
}

/// What `loginUserName` says in a process whose user has no account. Only root can become one.
std::string nameWithoutAccount(const char* user) {
  int pipe[2];
  if (::pipe(pipe) != 0) return "no pipe";
  const pid_t child = ::fork();
  if (child == 0) {
    if (user != nullptr) {
      ::setenv("USER", user, 1);
    } else {
      ::unsetenv("USER");
    }
    const std::string name = ::seteuid(3'999'999) == 0 ? loginUserName() : "not root";
    const bool written = ::write(pipe[1], name.data(), name.size()) > 0;
    ::_exit(written ? 0 : 1);
  }
  ::close(pipe[1]);
  char buffer[64];
  const ssize_t got = ::read(pipe[0], buffer, sizeof buffer);
  ::close(pipe[0]);
  ::waitpid(child, nullptr, 0);
  return std::string(buffer, static_cast<std::size_t>(got < 0 ? 0 : got));
}

TEST(Host, userWithoutAccount) {
  const bool root = ::geteuid() == 0;
  EXPECT_EQ(nameWithoutAccount("anna"), root ? "anna" : "not root");
  EXPECT_EQ(nameWithoutAccount(""), root ? "3999999" : "not root");
  EXPECT_EQ(nameWithoutAccount(nullptr), root ? "3999999" : "not root");
}

}  // namespace
}  // namespace ambervane
