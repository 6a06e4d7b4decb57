#include "platform/secret.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

namespace ambervane {
namespace {

TEST(Secret, leavesNothingBehindWhereItCameFrom) {
  for (const std::size_t size : {7U, 500U}) {
    std::string text(size, 'x');
    const char* const where = text.data();
    const Secret secret(std::move(text));
    EXPECT_EQ(secret.view(), std::string(size, 'x'));
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(text.data(), where);
    EXPECT_EQ(std::string_view(where, size), std::string(size, '\0'));
  }
}

TEST(Secret, movesAndGrows) {
  Secret secret = Secret::joined({"ge", "", "heim"});
  for (int i = 0; i < 100; ++i) secret.append("!");
  Secret moved = std::move(secret);
  EXPECT_TRUE(secret.empty());
  EXPECT_EQ(moved.view(), "geheim" + std::string(100, '!'));
  const Secret copy = moved.clone();
  moved = Secret();
  EXPECT_TRUE(moved.empty());
  EXPECT_EQ(copy.view().size(), 106U);
  EXPECT_EQ(base64Secret(Secret::joined({{"\0a\0b", 4}})).view(), "AGEAYg==");
}

TEST(Secret, isMasked) {
  static constexpr struct {
    const char *name, *text, *secret, *masked;
  } kCases[] = {
      {"once", "LOGIN \"a\" \"pw\"", "pw", "LOGIN \"a\" \"••••••\""},
      {"often", "pwpw p w", "pw", "•••••••••••• p w"},
      {"empty", "LOGIN", "", "LOGIN"},
      {"whole", "pw", "pw", "••••••"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(maskSecret(c.text, c.secret), c.masked);
  }
}

TEST(Secret, keepsTheProcessFromDumpingCore) {
  const pid_t child = ::fork();
  if (child == 0) {
    const rlimit room{RLIM_INFINITY, RLIM_INFINITY};
    ::setrlimit(RLIMIT_CORE, &room);
    const Secret secret = Secret::joined({"geheim"});
    ::signal(SIGQUIT, SIG_DFL);
    ::raise(SIGQUIT);
    ::_exit(1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_FALSE(WCOREDUMP(status));
}

}  // namespace
}  // namespace ambervane
