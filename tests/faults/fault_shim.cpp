// A library to be loaded before all others (LD_PRELOAD). It counts the calls that change the files
// below one folder, SQLite's among them, and at the Nth of them ends the process, cuts a write
// short, lets the call fail, or cuts the power: what was not flushed by then is lost or torn.
//
//   AMBERVANE_FAULT_FOLDER  the folder, as a canonical path; without it nothing is done
//   AMBERVANE_FAULT_AT      N, counted from 1; 0 or absent: only counted. Power that is to be cut
//                           behind the last call is cut when the program has ended
//   AMBERVANE_FAULT_KIND    kill | after | torn | power | short | an errno value
//   AMBERVANE_FAULT_STICKY  "1": the calls behind the Nth fail as well
//   AMBERVANE_FAULT_SEED    decides what of unflushed data survives, and where a write is torn
//   AMBERVANE_FAULT_LOG     a file that gets one line for each call counted
//
// Real calls are made as system calls, so that nothing of this comes back to itself.

#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr off_t kSectorBytes = 512;

std::string setting(const char* name) {
  const char* const value = ::getenv(name);
  return value == nullptr ? "" : value;
}

enum class Kind { none, kill, after, torn, power, cut, fail };

struct Plan {
  std::string folder = setting("AMBERVANE_FAULT_FOLDER");
  long at = ::atol(setting("AMBERVANE_FAULT_AT").c_str());
  bool sticky = setting("AMBERVANE_FAULT_STICKY") == "1";
  Kind kind = Kind::none;
  int error = 0;
  int log = -1;
  std::mt19937_64 random{::strtoull(setting("AMBERVANE_FAULT_SEED").c_str(), nullptr, 10)};

  Plan() {
    const std::string text = setting("AMBERVANE_FAULT_KIND");
    const std::pair<const char*, Kind> names[] = {{"kill", Kind::kill},
                                                  {"after", Kind::after},
                                                  {"torn", Kind::torn},
                                                  {"power", Kind::power},
                                                  {"short", Kind::cut}};
    error = ::atoi(text.c_str());
    if (error > 0) kind = Kind::fail;
    for (const auto& [name, value] : names) {
      if (text == name) kind = value;
    }
    const std::string file = setting("AMBERVANE_FAULT_LOG");
    if (!file.empty()) {
      log = static_cast<int>(::syscall(SYS_openat, AT_FDCWD, file.c_str(),
                                       O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
    }
  }
};

// Never destroyed: the program writes until its very end.
Plan& plan() {
  static Plan& it = *new Plan;
  return it;
}

std::mutex& mutex() {
  static std::mutex& it = *new std::mutex;
  return it;
}

std::size_t chosen(std::size_t choices) { return plan().random() % choices; }

std::string pathOf(int descriptor) {
  char path[4096];
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t size = ::readlink(link.c_str(), path, sizeof path);
  return size < 0 ? "" : std::string(path, static_cast<std::size_t>(size));
}

/// The path with its folder resolved; the file itself need not exist.
std::string fullPath(const char* path) {
  const std::string text(path);
  const std::size_t slash = text.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : text.substr(0, slash + 1);
  char resolved[4096];
  if (::realpath(folder.c_str(), resolved) == nullptr) return text;
  return std::string(resolved) + "/" + text.substr(slash == std::string::npos ? 0 : slash + 1);
}

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

bool isWatched(const std::string& path) {
  const std::string& folder = plan().folder;
  return !folder.empty() && path.compare(0, folder.size(), folder) == 0 &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

int openRaw(const std::string& path, int flags, mode_t mode = 0600) {
  return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path.c_str(), flags | O_CLOEXEC, mode));
}

std::string readRange(int descriptor, off_t from, off_t to) {
  std::string bytes(static_cast<std::size_t>(std::max<off_t>(to - from, 0)), '\0');
  const ssize_t got = ::pread(descriptor, bytes.data(), bytes.size(), from);
  bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  return bytes;
}

void writeRaw(int descriptor, const std::string& bytes, off_t at) {
  if (!bytes.empty()) ::syscall(SYS_pwrite64, descriptor, bytes.data(), bytes.size(), at);
}

off_t sizeOf(int descriptor) {
  struct stat info {};
  return ::fstat(descriptor, &info) == 0 ? info.st_size : 0;
}

/// What a machine without power would forget: bytes since the last flush of their file, and names
/// since the last flush of their folder. Kept only when the power is to be cut.
class Volatile {
 public:
  void noteWrite(int descriptor, off_t at, const void* data, std::size_t size) {
    Change change;
    change.at = at;
    change.sizeBefore = sizeOf(descriptor);
    change.before =
        readRange(descriptor, at, std::min(change.sizeBefore, at + static_cast<off_t>(size)));
    change.after.assign(static_cast<const char*>(data), size);
    file(descriptor).changes.push_back(std::move(change));
  }
  void noteTruncation(int descriptor, off_t size) {
    Change change;
    change.at = size;
    change.sizeBefore = sizeOf(descriptor);
    change.before = readRange(descriptor, size, change.sizeBefore);
    change.truncates = true;
    file(descriptor).changes.push_back(std::move(change));
  }
  void noteFlush(int descriptor) {
    names_.erase(pathOf(descriptor));
    file(descriptor).changes.clear();
  }
  void noteCreated(const std::string& path, bool isFolder) {
    names_[folderOf(path)].push_back({isFolder ? Name::folder : Name::file, path, "", {}, 0});
  }
  /// `from` is empty for a removal.
  void noteReplaced(const std::string& from, const std::string& path) {
    Name name{from.empty() ? Name::removed : Name::moved, path, from, "", 0};
    const int descriptor = openRaw(path, O_RDONLY);
    if (descriptor >= 0) {
      struct stat info {};
      ::fstat(descriptor, &info);
      name.mode = info.st_mode & 0777;
      name.before = readRange(descriptor, 0, info.st_size);
      ::close(descriptor);
    }
    names_[folderOf(path)].push_back(std::move(name));
  }

  /// Leaves the folder as a machine finds it that lost its power now.
  void cutPower() {
    // Other threads may look at what is cut off from mapped files; they have no power either.
    ::signal(SIGBUS, [](int) {
      for (;;) ::pause();
    });
    const bool losesAll = chosen(4) == 0;
    for (auto& [inode, each] : files_) settle(each, losesAll);
    for (auto& [folder, names] : names_) {
      // A file system takes the changes of one folder to its disk in their order.
      const std::size_t kept = losesAll ? 0 : chosen(names.size() + 1);
      while (names.size() > kept) {
        takeBack(names.back());
        names.pop_back();
      }
    }
  }

 private:
  struct Change {
    off_t at = 0;
    off_t sizeBefore = 0;
    std::string before, after;
    bool truncates = false;
  };
  struct File {
    int descriptor = -1;
    std::vector<Change> changes;
  };
  struct Name {
    enum What { file, folder, moved, removed } what;
    std::string path, from, before;
    mode_t mode;
  };

  File& file(int descriptor) {
    struct stat info {};
    ::fstat(descriptor, &info);
    File& known = files_[{info.st_dev, info.st_ino}];
    if (known.descriptor < 0) {
      known.descriptor = openRaw("/proc/self/fd/" + std::to_string(descriptor), O_RDWR);
    }
    return known;
  }

  static void settle(File& file, bool losesAll) {
    for (auto change = file.changes.rbegin(); change != file.changes.rend(); ++change) {
      writeRaw(file.descriptor, change->before, change->at);
      ::syscall(SYS_ftruncate, file.descriptor, change->sizeBefore);
    }
    if (losesAll) return;
    for (const Change& change : file.changes) {
      const std::size_t fate = chosen(3);
      if (fate == 0) continue;
      if (change.truncates) {
        ::syscall(SYS_ftruncate, file.descriptor, change.at);
        continue;
      }
      std::size_t size = change.after.size();
      if (fate == 1) {  // torn where a sector ends
        const off_t end = change.at + static_cast<off_t>(chosen(size + 1));
        const off_t sector = std::max(end / kSectorBytes * kSectorBytes, change.at);
        size = static_cast<std::size_t>(sector - change.at);
      }
      writeRaw(file.descriptor, change.after.substr(0, size), change.at);
    }
  }

  static void takeBack(const Name& name) {
    switch (name.what) {
      case Name::file:
        ::syscall(SYS_unlinkat, AT_FDCWD, name.path.c_str(), 0);
        return;
      case Name::folder:
        ::syscall(SYS_unlinkat, AT_FDCWD, name.path.c_str(), AT_REMOVEDIR);
        return;
      case Name::moved:
        ::syscall(SYS_renameat2, AT_FDCWD, name.path.c_str(), AT_FDCWD, name.from.c_str(), 0);
        if (name.mode == 0) return;  // nothing had stood there
        break;
      case Name::removed:
        break;
    }
    const int descriptor = openRaw(name.path, O_WRONLY | O_CREAT | O_TRUNC, name.mode);
    writeRaw(descriptor, name.before, 0);
    ::close(descriptor);
  }

  std::map<std::pair<dev_t, ino_t>, File> files_;
  std::map<std::string, std::vector<Name>> names_;
};

Volatile* unflushed() {
  static Volatile& it = *new Volatile;
  return plan().kind == Kind::power ? &it : nullptr;
}

[[noreturn]] void die() {
  ::kill(::getpid(), SIGKILL);
  for (;;) ::pause();
}

/// One call that changes something, counted when it is made; holds the others up while it lasts.
class Step {
 public:
  Step(const char* call, const std::string& path, std::size_t size = 0)
      : lock_(mutex()), allowed(size) {
    static long count = 0;
    const long number = ++count;
    Plan& p = plan();
    if (p.log >= 0) {
      const std::string line = std::to_string(number) + " " + call + " " +
                               path.substr(p.folder.size()) + " " + std::to_string(size) + "\n";
      ::syscall(SYS_write, p.log, line.data(), line.size());
    }
    const bool isBehind = p.at > 0 && number > p.at;
    if (p.kind == Kind::cut && isBehind && (p.sticky || number == p.at + 1)) error = ENOSPC;
    if (p.kind == Kind::fail && isBehind && p.sticky) error = p.error;
    if (p.at == 0 || number != p.at) return;
    switch (p.kind) {
      case Kind::none:
        break;
      case Kind::kill:
        die();
      case Kind::power:
        unflushed()->cutPower();
        die();
      case Kind::after:
        endsAfter_ = true;
        break;
      case Kind::torn:
        if (size == 0) die();
        allowed = chosen(size);
        endsAfter_ = true;
        break;
      case Kind::cut:
        if (size == 0) error = ENOSPC;
        allowed = size / 2;
        if (size == 1) error = ENOSPC;
        break;
      case Kind::fail:
        error = p.error;
        break;
    }
  }
  template <typename Result>
  Result done(Result result) {
    if (endsAfter_) die();
    return result;
  }

 private:
  std::unique_lock<std::mutex> lock_;
  bool endsAfter_ = false;

 public:
  std::size_t allowed;
  int error = 0;
};

/// The power fails when all is said and done.
__attribute__((destructor)) void cutPowerAtEnd() {
  const std::lock_guard lock(mutex());
  if (plan().at > 0 && unflushed() != nullptr) unflushed()->cutPower();
}

long refused(int error) {
  errno = error;
  return -1;
}

/// `at` below zero: where the descriptor stands.
ssize_t writeBytes(int descriptor, const void* data, std::size_t size, off_t at) {
  const auto make = [&](std::size_t bytes) {
    return static_cast<ssize_t>(at < 0 ? ::syscall(SYS_write, descriptor, data, bytes)
                                       : ::syscall(SYS_pwrite64, descriptor, data, bytes, at));
  };
  if (plan().folder.empty()) return make(size);
  const std::string path = pathOf(descriptor);
  // A "-shm" file is written through memory for the most part, and nothing of it needs to last.
  if (!isWatched(path) || path.ends_with("-shm")) return make(size);
  Step step("write", path, size);
  if (step.error != 0) return refused(step.error);
  if (Volatile* const kept = unflushed()) {
    off_t start = at;
    if (at < 0) {
      const bool appends = (::fcntl(descriptor, F_GETFL) & O_APPEND) != 0;
      start = appends ? sizeOf(descriptor) : ::lseek(descriptor, 0, SEEK_CUR);
    }
    kept->noteWrite(descriptor, start, data, step.allowed);
  }
  return step.done(make(step.allowed));
}

/// Makes a call that changes the file at `path`; `note` tells the volatile state of it before.
template <typename Make, typename Note>
int change(const char* call, const std::string& path, Make make, Note note) {
  if (!isWatched(path)) return make();
  Step step(call, path);
  if (step.error != 0) return static_cast<int>(refused(step.error));
  if (Volatile* const kept = unflushed()) note(*kept);
  return step.done(make());
}

bool isThere(const char* name) {
  struct stat info {};
  return ::lstat(name, &info) == 0;
}

int openFile(const char* name, int flags, mode_t mode) {
  const auto make = [&] {
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, name, flags, mode));
  };
  if (plan().folder.empty() || (flags & (O_CREAT | O_ACCMODE)) == 0) return make();
  const bool isNew = !isThere(name);
  if (isNew && (flags & O_CREAT) == 0) return make();
  const std::string path = fullPath(name);
  return change(isNew ? "create" : "open", path, make, [&](Volatile& kept) {
    if (isNew) kept.noteCreated(path, false);
  });
}

int flushFile(int descriptor, long number) {
  const auto make = [&] { return static_cast<int>(::syscall(number, descriptor)); };
  if (plan().folder.empty()) return make();
  return change("flush", pathOf(descriptor), make,
                [&](Volatile& kept) { kept.noteFlush(descriptor); });
}

int truncateFile(int descriptor, off_t size) {
  const auto make = [&] { return static_cast<int>(::syscall(SYS_ftruncate, descriptor, size)); };
  if (plan().folder.empty()) return make();
  return change("truncate", pathOf(descriptor), make,
                [&](Volatile& kept) { kept.noteTruncation(descriptor, size); });
}

int moveFile(const char* from, const char* to) {
  const auto make = [&] {
    return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
  };
  if (plan().folder.empty()) return make();
  const std::string path = fullPath(to);
  return change("rename", path, make,
                [&](Volatile& kept) { kept.noteReplaced(fullPath(from), path); });
}

int removeFile(const char* name, int flags) {
  const auto make = [&] {
    return static_cast<int>(::syscall(SYS_unlinkat, AT_FDCWD, name, flags));
  };
  if (plan().folder.empty() || !isThere(name)) return make();
  const std::string path = fullPath(name);
  return change("remove", path, make, [&](Volatile& kept) {
    if (flags == 0) kept.noteReplaced("", path);
  });
}

int makeFolder(const char* name, mode_t mode) {
  const auto make = [&] { return static_cast<int>(::syscall(SYS_mkdirat, AT_FDCWD, name, mode)); };
  if (plan().folder.empty() || isThere(name)) return make();
  const std::string path = fullPath(name);
  return change("mkdir", path, make, [&](Volatile& kept) { kept.noteCreated(path, true); });
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(more, int) : 0);
  va_end(more);
  return openFile(path, flags, mode);
}
int open64(const char* path, int flags, ...) __attribute__((alias("open")));

ssize_t write(int descriptor, const void* data, size_t size) {
  return writeBytes(descriptor, data, size, -1);
}
ssize_t pwrite(int descriptor, const void* data, size_t size, off_t at) {
  return writeBytes(descriptor, data, size, at);
}
ssize_t pwrite64(int descriptor, const void* data, size_t size, off_t at)
    __attribute__((alias("pwrite")));
ssize_t writev(int descriptor, const struct iovec* parts, int count) {
  std::string joined;
  for (int i = 0; i < count; ++i) {
    joined.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
  }
  return writeBytes(descriptor, joined.data(), joined.size(), -1);
}

int ftruncate(int descriptor, off_t size) __THROW { return truncateFile(descriptor, size); }
int ftruncate64(int descriptor, off_t size) __THROW __attribute__((alias("ftruncate")));

int fsync(int descriptor) { return flushFile(descriptor, SYS_fsync); }
int fdatasync(int descriptor) { return flushFile(descriptor, SYS_fdatasync); }

int rename(const char* from, const char* to) __THROW { return moveFile(from, to); }
int unlink(const char* path) __THROW { return removeFile(path, 0); }
int rmdir(const char* path) __THROW { return removeFile(path, AT_REMOVEDIR); }
int remove(const char* path) __THROW {
  struct stat info {};
  const bool isFolder = ::lstat(path, &info) == 0 && S_ISDIR(info.st_mode);
  return removeFile(path, isFolder ? AT_REMOVEDIR : 0);
}
int mkdir(const char* name, mode_t mode) __THROW { return makeFolder(name, mode); }

}  // extern "C"
