#include "platform/password_prompt.h"

#include <fcntl.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "base/file.h"

namespace ambervane {
namespace {

constexpr std::array kSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP};

volatile std::sig_atomic_t caught = 0;
void note(int signal) { caught = signal; }

/// Holds the signals back that end or stop a process, until it waits with `before`: then the first
/// of them is noted.
class SignalWatch {
 public:
  SignalWatch() {
    caught = 0;
    sigset_t watched;
    sigemptyset(&watched);
    for (const int signal : kSignals) sigaddset(&watched, signal);
    pthread_sigmask(SIG_BLOCK, &watched, &before_);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      sigaction(kSignals[i], nullptr, &actions_[i]);
      if (actions_[i].sa_handler == SIG_IGN) continue;
      struct sigaction action {};
      action.sa_handler = note;
      sigfillset(&action.sa_mask);
      sigaction(kSignals[i], &action, nullptr);
    }
  }
  /// What has been held back is delivered now.
  ~SignalWatch() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      sigaction(kSignals[i], &actions_[i], nullptr);
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;
  const sigset_t& before() const noexcept { return before_; }

 private:
  sigset_t before_{};
  std::array<struct sigaction, kSignals.size()> actions_{};
};

/// A terminal that does not show what is typed.
class EchoOff {
 public:
  explicit EchoOff(int terminal) : terminal_(terminal) {
    if (::tcgetattr(terminal, &before_) != 0) return;
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
    silent.c_lflag |= ICANON | ISIG;
    isOff_ = ::tcsetattr(terminal, TCSAFLUSH, &silent) == 0;
  }
  ~EchoOff() {
    if (isOff_) ::tcsetattr(terminal_, TCSAFLUSH, &before_);
  }
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;
  bool isOff() const noexcept { return isOff_; }

 private:
  int terminal_;
  termios before_{};
  bool isOff_ = false;
};

void write(int terminal, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(terminal, text.data(), text.size());
    if (count <= 0) return;  // the person sees less, and can still type
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

/// Reads to the end of a line; false at the end of input or when a signal was noted.
bool readLine(int terminal, const sigset_t& mask, Secret& line) {
  std::array<char, 4096> piece{};  // the most a terminal hands out at a time
  bool complete = false;
  while (!complete) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(terminal, &readable);
    if (::pselect(terminal + 1, &readable, nullptr, nullptr, nullptr, &mask) < 0) {
      if (errno == EINTR && caught == 0) continue;
      break;
    }
    const ssize_t count = ::read(terminal, piece.data(), piece.size());
    if (count <= 0) break;
    std::string_view text(piece.data(), static_cast<std::size_t>(count));
    complete = text.ends_with('\n');
    if (complete) text.remove_suffix(1);
    line.append(text);
  }
  eraseBytes(piece.data(), piece.size());
  return complete;
}

}  // namespace

PasswordAnswer askPassword(const std::string& prompt) {
  using Kind = PasswordAnswer::Kind;
  const FileHandle terminal(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!terminal || terminal.descriptor() >= FD_SETSIZE) return {};
  while (true) {
    PasswordAnswer answer{Kind::cancelled};
    int signal = 0;
    {
      const SignalWatch signals;
      const EchoOff echo(terminal.descriptor());
      if (!echo.isOff()) return {};  // better no password than one on the screen
      write(terminal.descriptor(), prompt);
      if (readLine(terminal.descriptor(), signals.before(), answer.password)) {
        answer.kind = Kind::given;
      } else {
        answer.password.clear();
      }
      write(terminal.descriptor(), "\n");
      signal = caught;
    }
    if (signal == 0) return answer;
    ::raise(signal);
    if (signal != SIGTSTP) return {Kind::cancelled};
  }
}

}  // namespace ambervane
