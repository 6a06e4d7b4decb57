#include "tests/faults/program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "base/file.h"
#include "base/text.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

/// Longer than the 10 s that SQLite waits for a lock.
constexpr int kPatienceMilliseconds = 60'000;

std::vector<char*> pointers(std::vector<std::string>& words) {
  std::vector<char*> all;
  for (std::string& word : words) all.push_back(word.data());
  all.push_back(nullptr);
  return all;
}

}  // namespace

void preferMemory() {
  constexpr std::uintmax_t kRoom = std::uintmax_t{512} << 20;
  std::error_code none;
  const auto space = fs::space("/dev/shm", none);
  if (!none && space.available >= kRoom) ::setenv("TMPDIR", "/dev/shm", 0);
}

std::span<const std::string> faultKinds() {
  static const std::string kKinds[] = {"kill",
                                       "after",
                                       "torn",
                                       "power",
                                       "short",
                                       std::to_string(EIO),
                                       std::to_string(ENOSPC),
                                       std::to_string(EDQUOT),
                                       std::to_string(EACCES),
                                       std::to_string(EROFS)};
  return kKinds;
}

std::string Fault::options() const {
  return "--at " + std::to_string(at) + " --kind " + kind + (sticky ? " --sticky" : "") +
         " --seed " + std::to_string(seed);
}

bool Fault::isError() const {
  return kind == "short" || (!kind.empty() && isAsciiDigit(kind.front()));
}

std::string Outcome::text() const {
  if (isHung) return "no end: " + err;
  if (signal != 0) return "signal " + std::to_string(signal) + ": " + err;
  return "exit " + std::to_string(status) + ": " + err;
}

int Program::launch(const std::vector<std::string>& words,
                    const std::vector<std::string>& variables, const std::string& output) const {
  std::vector<std::string> command = {AMBERVANE_PROGRAM};
  command.insert(command.end(), words.begin(), words.end());
  std::vector<std::string> environment = variables;
  environment.emplace_back("AMBERVANE_NO_TIMESTAMP=1");
  for (char** each = environ; *each != nullptr; ++each) environment.emplace_back(*each);

  posix_spawn_file_actions_t files;
  ::posix_spawn_file_actions_init(&files);
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    const fs::path path = scratch_ / (output + (stream == STDOUT_FILENO ? ".out" : ".err"));
    ::posix_spawn_file_actions_addopen(&files, stream, path.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                       0600);
  }
  pid_t process = -1;
  const int failed = ::posix_spawn(&process, AMBERVANE_PROGRAM, &files, nullptr,
                                   pointers(command).data(), pointers(environment).data());
  ::posix_spawn_file_actions_destroy(&files);
  if (failed != 0) throw std::runtime_error("the program cannot be started");
  return process;
}

Outcome Program::finish(int process, const std::string& output) const {
  Outcome outcome;
  const FileHandle handle(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
  pollfd wait{handle.descriptor(), POLLIN, 0};
  if (::poll(&wait, 1, kPatienceMilliseconds) == 0) {
    outcome.isHung = true;
    ::kill(process, SIGKILL);
  }
  int status = 0;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) outcome.signal = WTERMSIG(status);
  outcome.out = readFile(scratch_ / (output + ".out"));
  outcome.err = readFile(scratch_ / (output + ".err"));
  return outcome;
}

Outcome Program::run(const std::vector<std::string>& words, const Fault& fault,
                     const fs::path& watched) const {
  fs::remove(callLog());
  return start(words, {std::string("LD_PRELOAD=") + AMBERVANE_FAULT_SHIM,
                       "AMBERVANE_FAULT_FOLDER=" + fs::weakly_canonical(watched).native(),
                       "AMBERVANE_FAULT_AT=" + std::to_string(fault.at),
                       "AMBERVANE_FAULT_KIND=" + fault.kind,
                       "AMBERVANE_FAULT_STICKY=" + std::string(fault.sticky ? "1" : "0"),
                       "AMBERVANE_FAULT_SEED=" + std::to_string(fault.seed),
                       "AMBERVANE_FAULT_LOG=" + callLog().native()});
}

std::vector<std::string> Program::calls() const {
  std::vector<std::string> lines;
  const Bytes log = readFileIfPossible(callLog()).value_or(Bytes());
  for (const std::string_view line : splitOmittingEmpty(log, "\n")) lines.emplace_back(line);
  return lines;
}

}  // namespace ambervane
