#include "doctext/document_helper.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

#ifdef __APPLE__
#include <mach-o/dyld.h>
#endif

extern char** environ;

namespace ambervane {
namespace {

#ifdef MSG_NOSIGNAL
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

double steadySeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Two ends of a connection, neither of which outlives an exec; the first does not block.
bool connectPair(FileHandle& ours, FileHandle& theirs) {
  std::array<int, 2> ends{};
#ifdef SOCK_CLOEXEC
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return false;
#else
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) return false;
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
#endif
  ours = FileHandle(ends[0]);
  theirs = FileHandle(ends[1]);
#ifdef SO_NOSIGPIPE
  const int on = 1;
  ::setsockopt(ends[0], SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
  return ::fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0;
}

/// Starts `program` with `input` as its standard input, in a process group of its own: an interrupt
/// from the terminal is for this process, which may want to finish its work first.
std::optional<pid_t> spawn(const std::filesystem::path& program, int input) {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  if (::posix_spawn_file_actions_init(&actions) != 0) return std::nullopt;
  if (::posix_spawnattr_init(&attributes) != 0) {
    ::posix_spawn_file_actions_destroy(&actions);
    return std::nullopt;
  }
  ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  ::posix_spawnattr_setpgroup(&attributes, 0);
  std::string name = program.string();
  std::array<char*, 2> arguments = {name.data(), nullptr};
  pid_t process = 0;
  const int error =
      ::posix_spawn(&process, program.c_str(), &actions, &attributes, arguments.data(), environ);
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return std::nullopt;
  return process;
}

std::filesystem::path runningProgram() {
#ifdef __APPLE__
  std::array<char, 4096> name{};
  auto size = static_cast<std::uint32_t>(name.size());
  if (::_NSGetExecutablePath(name.data(), &size) != 0) return {};
  std::error_code ignored;
  return std::filesystem::canonical(name.data(), ignored);
#else
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/exe", ignored);
#endif
}

}  // namespace

std::unique_ptr<DocumentHelper> DocumentHelper::start(const std::filesystem::path& program) {
  FileHandle ours;
  FileHandle theirs;
  if (!connectPair(ours, theirs)) return nullptr;
  const auto process = spawn(program, theirs.descriptor());
  if (!process) return nullptr;
  return std::make_unique<DocumentHelper>(std::move(ours), *process);
}

DocumentHelper::~DocumentHelper() {
  socket_.close();
  // It holds nothing that an orderly end would save.
  ::kill(-process_, SIGKILL);
  while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) continue;
}

int DocumentHelper::remainingMilliseconds() const {
  return static_cast<int>(std::clamp((deadline_ - steadySeconds()) * 1000, 0.0, 1e9));
}

bool DocumentHelper::exchange(bool sends, char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t done = sends ? ::send(socket_.descriptor(), bytes, count, kSendFlags)
                               : ::recv(socket_.descriptor(), bytes, count, 0);
    if (done > 0) {
      bytes += done;
      count -= static_cast<std::size_t>(done);
      continue;
    }
    const bool mustWait = done < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    if (!mustWait && !(done < 0 && errno == EINTR)) {
      failure_ = Failure::gone;
      return false;
    }
    pollfd waiting{socket_.descriptor(), static_cast<short>(sends ? POLLOUT : POLLIN), 0};
    if (mustWait && ::poll(&waiting, 1, remainingMilliseconds()) == 0) {
      failure_ = Failure::late;
      return false;
    }
  }
  return true;
}

std::optional<DocumentText> DocumentHelper::read(const HelperRequest& request, BytesView document) {
  // The helper ends most readings itself before: this is for one that cannot any more.
  deadline_ = steadySeconds() + 1 + 1.5 * static_cast<double>(request.totalMilliseconds) / 1000;
  HelperRequest head = request;
  head.documentBytes = document.size();
  HelperAnswer answer;
  if (!exchange(true, reinterpret_cast<char*>(&head), sizeof head) ||
      !exchange(true, const_cast<char*>(document.data()), document.size()) ||
      !exchange(false, reinterpret_cast<char*>(&answer), sizeof answer)) {
    return std::nullopt;
  }
  if (answer.version != kHelperVersion || answer.textBytes > request.textBytes ||
      answer.reading > static_cast<std::uint32_t>(DocumentReading::notDocument)) {
    failure_ = Failure::gone;
    return std::nullopt;
  }
  DocumentText result{static_cast<DocumentReading>(answer.reading), {}};
  result.text.resize(answer.textBytes);
  if (!exchange(false, result.text.data(), result.text.size())) return std::nullopt;
  return result;
}

std::optional<DocumentText> DocumentHelpers::read(const HelperRequest& request,
                                                  BytesView document) {
  // A helper that stood idle may have been ended by others since: one more is tried.
  for (int attempt = 0; attempt < 2; ++attempt) {
    std::unique_ptr<DocumentHelper> helper = take();
    if (!helper) break;
    if (auto result = helper->read(request, document)) {
      const std::lock_guard lock(mutex_);
      idle_.push_back(std::move(helper));
      return result;
    }
    if (helper->failure() == DocumentHelper::Failure::late) break;
  }
  return std::nullopt;
}

std::unique_ptr<DocumentHelper> DocumentHelpers::take() {
  const std::lock_guard lock(mutex_);
  if (idle_.empty()) return DocumentHelper::start(program_);
  std::unique_ptr<DocumentHelper> helper = std::move(idle_.back());
  idle_.pop_back();
  return helper;
}

std::optional<std::filesystem::path> findDocumentHelper() {
  const std::filesystem::path folder = runningProgram().parent_path();
  if (folder.empty()) return std::nullopt;
  for (const char* const place : {".", "libexec/ambervane", "../libexec/ambervane"}) {
    const auto program = folder / place / "ambervane-doctext";
    if (::access(program.c_str(), X_OK) == 0) return program;
  }
  return std::nullopt;
}

}  // namespace ambervane
