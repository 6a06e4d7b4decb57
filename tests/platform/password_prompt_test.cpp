#include "platform/password_prompt.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#ifdef __APPLE__
#include <util.h>
#else
#include <pty.h>
#endif

#include <csignal>

#include "base/file.h"

namespace ambervane {
namespace {

using Kind = PasswordAnswer::Kind;

constexpr int kSeconds = 10;

/// A process that asks for a password at a terminal of its own. Its exit status tells what it got.
class AskingProcess {
 public:
  static constexpr int kGotIt = 0, kGotSomethingElse = 1, kNoTerminal = 2, kCancelled = 3;

  explicit AskingProcess(const std::string& expected) {
    int master = -1;
    int slave = -1;
    if (::openpty(&master, &slave, nullptr, nullptr, nullptr) != 0) {
      throw std::runtime_error("no pseudo terminal");
    }
    master_ = FileHandle(master);
    slave_ = FileHandle(slave);  // kept, so that the terminal outlives the process
    process_ = ::fork();
    if (process_ == 0) {
      ::alarm(kSeconds);
      ::setsid();
      ::ioctl(slave, TIOCSCTTY, 0);
      ask(expected);
    }
  }
  ~AskingProcess() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }

  [[noreturn]] static void ask(const std::string& expected) {
    const PasswordAnswer answer = askPassword("Password: ");
    if (answer.kind == Kind::noTerminal) ::_exit(kNoTerminal);
    if (answer.kind == Kind::cancelled) ::_exit(kCancelled);
    ::_exit(answer.password.view() == expected ? kGotIt : kGotSomethingElse);
  }

  /// What the terminal has shown, once it shows `text`.
  std::string shownUpTo(const std::string& text) {
    while (shown_.find(text) == std::string::npos) {
      pollfd waiting{master_.descriptor(), POLLIN, 0};
      char piece[256];
      if (::poll(&waiting, 1, kSeconds * 1000) != 1) break;
      const ssize_t count = ::read(master_.descriptor(), piece, sizeof piece);
      if (count <= 0) break;
      shown_.append(piece, static_cast<std::size_t>(count));
    }
    return shown_;
  }
  void type(const std::string& text) {
    ASSERT_EQ(::write(master_.descriptor(), text.data(), text.size()),
              static_cast<ssize_t>(text.size()));
  }
  bool echoes() const {
    termios settings{};
    return ::tcgetattr(master_.descriptor(), &settings) == 0 && (settings.c_lflag & ECHO) != 0;
  }
  /// The status of the process as `waitpid` gives it.
  int wait() {
    int status = 0;
    ::waitpid(process_, &status, 0);
    process_ = -1;
    return status;
  }

 private:
  FileHandle master_, slave_;
  pid_t process_ = -1;
  std::string shown_;
};

TEST(PasswordPrompt, readsALineThatIsNotShown) {
  const std::string kCases[] = {"geheim", "", "with  blanks \xC3\xBC", std::string(3000, 'x')};
  for (const std::string& password : kCases) {
    SCOPED_TRACE(password.size());
    AskingProcess process(password);
    EXPECT_EQ(process.shownUpTo("Password: "), "Password: ");
    EXPECT_FALSE(process.echoes());
    process.type(password + "\n");
    EXPECT_EQ(process.shownUpTo("\n"), "Password: \r\n");
    const int status = process.wait();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == AskingProcess::kGotIt) << status;
    EXPECT_TRUE(process.echoes());
  }
}

TEST(PasswordPrompt, leavesTheTerminalAsItWas) {
  const struct {
    const char* name;
    const char* typed;
    int signal;  ///< that ends the process; 0: it ends with `kCancelled`
  } kCases[] = {
      {"interrupt", "geh\x03", SIGINT}, {"quit", "geh\x1C", SIGQUIT}, {"endOfInput", "\x04", 0}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    AskingProcess process("geheim");
    process.shownUpTo("Password: ");
    process.type(c.typed);
    const int status = process.wait();
    if (c.signal != 0) {
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == c.signal) << status;
    } else {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == AskingProcess::kCancelled) << status;
    }
    EXPECT_TRUE(process.echoes());
  }
}

TEST(PasswordPrompt, asksAgainAfterAStop) {
  AskingProcess process("geheim");
  process.shownUpTo("Password: ");
  process.type("lost\x1A");  // the first process of a terminal goes on at once
  process.shownUpTo("\nPassword: ");
  process.type("geheim\n");
  EXPECT_EQ(process.wait(), 0);
  EXPECT_TRUE(process.echoes());
}

TEST(PasswordPrompt, doesNotWaitWhereNobodyIs) {
  const pid_t process = ::fork();
  if (process == 0) {
    ::setsid();
    ::alarm(kSeconds);
    AskingProcess::ask("");
  }
  int status = 0;
  ::waitpid(process, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == AskingProcess::kNoTerminal) << status;
}

}  // namespace
}  // namespace ambervane
