#include "base/file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "base/text.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

std::function<std::size_t(const FileStep&)>& stepHook() {
  static std::function<std::size_t(const FileStep&)> hook;
  return hook;
}
std::atomic<bool> hooked{false};

/// How many bytes of the step may go through.
std::size_t announce(FileStep::Kind kind, const fs::path& path, std::size_t bytes = 0) {
  if (!hooked.load(std::memory_order_relaxed)) return bytes;
  return std::min(stepHook()(FileStep{kind, path, bytes}), bytes);
}

int openDescriptor(const fs::path& path, int flags, int mode, FileError::Action action) {
  for (;;) {
    const int descriptor = ::open(path.c_str(), flags | O_CLOEXEC, mode);
    if (descriptor >= 0) return descriptor;
    if (errno != EINTR) throw FileError(action, path, errno);
  }
}

void writeAll(int descriptor, const fs::path& path, BytesView bytes) {
  const std::size_t allowed = announce(FileStep::Kind::write, path, bytes.size());
  const bool cut = allowed < bytes.size();
  if (cut) bytes = bytes.substr(0, allowed);
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      throw FileError(FileError::Action::write, path, errno);
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  if (cut) throw FileError(FileError::Action::write, path, ENOSPC);
}

void syncDescriptor(int descriptor, const fs::path& path) {
  announce(FileStep::Kind::sync, path);
  if (::fsync(descriptor) != 0) throw FileError(FileError::Action::sync, path, errno);
}

fs::path folderOf(const fs::path& path) {
  return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

/// Makes a file that was not there, and on a failure leaves none.
void createWhole(const fs::path& path, BytesView bytes, int mode) {
  FileHandle file(openDescriptor(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode,
                                 FileError::Action::create));
  try {
    writeAll(file.descriptor(), path, bytes);
    syncDescriptor(file.descriptor(), path);
  } catch (...) {
    ::unlink(path.c_str());
    throw;
  }
}

}  // namespace

LocalizedMessage FileError::message() const {
  const char* format = "";
  switch (action_) {
    case Action::open:
      format = "Cannot open %@: %@";
      break;
    case Action::read:
      format = "Cannot read %@: %@";
      break;
    case Action::write:
      format = "Cannot write %@: %@";
      break;
    case Action::sync:
      format = "Cannot flush %@ to the disk: %@";
      break;
    case Action::create:
      format = "Cannot create %@: %@";
      break;
    case Action::rename:
      format = "Cannot move %@ into place: %@";
      break;
    case Action::remove:
      format = "Cannot remove %@: %@";
      break;
    case Action::list:
      format = "Cannot list %@: %@";
      break;
  }
  return {format, {printable(path_.native()), std::generic_category().message(error_)}};
}

void setFileStepHook(std::function<std::size_t(const FileStep&)> hook) {
  hooked = static_cast<bool>(hook);
  stepHook() = std::move(hook);
}

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
  if (this != &other) {
    close();
    descriptor_ = std::exchange(other.descriptor_, -1);
  }
  return *this;
}

void FileHandle::close() noexcept {
  // A failed close has no one to tell: whoever needs the bytes on disk has called sync before.
  if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
}

FileHandle openForReading(const fs::path& path) {
  return FileHandle(openDescriptor(path, O_RDONLY, 0, FileError::Action::open));
}

Bytes readFile(const fs::path& path) {
  const FileHandle file = openForReading(path);
  struct stat info {};
  if (::fstat(file.descriptor(), &info) != 0) {
    throw FileError(FileError::Action::read, path, errno);
  }
  Bytes bytes;
  bytes.resize(S_ISREG(info.st_mode) ? static_cast<std::size_t>(info.st_size) + 1 : 65536);
  std::size_t filled = 0;
  for (;;) {
    const ssize_t got = ::read(file.descriptor(), bytes.data() + filled, bytes.size() - filled);
    if (got < 0) {
      if (errno == EINTR) continue;
      throw FileError(FileError::Action::read, path, errno);
    }
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
    if (filled == bytes.size()) bytes.resize(bytes.size() * 2);
  }
  bytes.resize(filled);
  return bytes;
}

std::optional<Bytes> readFileIfPossible(const fs::path& path) {
  try {
    return readFile(path);
  } catch (const FileError&) {
    return std::nullopt;
  }
}

void writeFileAtomically(const fs::path& path, BytesView bytes, int mode) {
  fs::path temporary = path;
  temporary += ".tmp-" + std::to_string(::getpid());
  announce(FileStep::Kind::create, temporary);
  // Never through a link that somebody planted under this name.
  ::unlink(temporary.c_str());
  createWhole(temporary, bytes, mode);
  try {
    renameFile(temporary, path);
  } catch (...) {
    ::unlink(temporary.c_str());
    throw;
  }
}

void renameFile(const fs::path& from, const fs::path& to) {
  announce(FileStep::Kind::rename, to);
  if (::rename(from.c_str(), to.c_str()) != 0) {
    throw FileError(FileError::Action::rename, to, errno);
  }
  syncFolder(folderOf(to));
}

void writeNewFile(const fs::path& path, BytesView bytes, int mode) {
  announce(FileStep::Kind::create, path);
  createWhole(path, bytes, mode);
  syncFolder(folderOf(path));
}

void createFolders(const fs::path& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) return;
  const fs::path parent = path.parent_path();
  if (!parent.empty() && parent != path) createFolders(parent);
  announce(FileStep::Kind::create, path);
  fs::create_directory(path, error);
  if (error) throw FileError(FileError::Action::create, path, error.value());
  syncFolder(parent.empty() ? fs::path(".") : parent);
}

void syncFolder(const fs::path& path) {
  announce(FileStep::Kind::sync, path);
  const FileHandle folder(openDescriptor(path, O_RDONLY | O_DIRECTORY, 0, FileError::Action::sync));
  // Some file systems cannot flush a folder and say EINVAL; there is nothing more to be done there.
  if (::fsync(folder.descriptor()) != 0 && errno != EINVAL) {
    throw FileError(FileError::Action::sync, path, errno);
  }
}

AppendFile AppendFile::open(const fs::path& path, int mode) {
  announce(FileStep::Kind::create, path);
  std::error_code ignored;
  const bool isNew = !fs::exists(path, ignored);
  AppendFile file(
      FileHandle(openDescriptor(path, O_RDWR | O_CREAT | O_APPEND, mode, FileError::Action::open)),
      path);
  if (isNew) syncFolder(folderOf(path));
  return file;
}

void AppendFile::append(BytesView bytes) { writeAll(handle_.descriptor(), path_, bytes); }

void AppendFile::sync() { syncDescriptor(handle_.descriptor(), path_); }

std::uint64_t AppendFile::size() const {
  struct stat info {};
  if (::fstat(handle_.descriptor(), &info) != 0) {
    throw FileError(FileError::Action::read, path_, errno);
  }
  return static_cast<std::uint64_t>(info.st_size);
}

void AppendFile::truncate(std::uint64_t size) {
  if (::ftruncate(handle_.descriptor(), static_cast<off_t>(size)) != 0) {
    throw FileError(FileError::Action::write, path_, errno);
  }
}

std::shared_ptr<const MappedFile> MappedFile::open(const fs::path& path) {
  const FileHandle file = openForReading(path);
  struct stat info {};
  if (::fstat(file.descriptor(), &info) != 0) {
    throw FileError(FileError::Action::read, path, errno);
  }
  if (!S_ISREG(info.st_mode)) throw FileError(FileError::Action::read, path, EINVAL);
  const auto size = static_cast<std::size_t>(info.st_size);
  if (size == 0) return std::shared_ptr<const MappedFile>(new MappedFile(nullptr, 0));
  void* const data = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.descriptor(), 0);
  if (data == MAP_FAILED) throw FileError(FileError::Action::read, path, errno);
  return std::shared_ptr<const MappedFile>(new MappedFile(static_cast<const char*>(data), size));
}

MappedFile::~MappedFile() {
  if (data_ != nullptr) ::munmap(const_cast<char*>(data_), size_);
}

void MappedFile::forgetBefore(std::size_t offset) const noexcept {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  const std::size_t length = std::min(offset, size_) / page * page;
  if (length > 0) ::madvise(const_cast<char*>(data_), length, MADV_DONTNEED);
}

std::string pathText(const fs::path& path) { return repairedUtf8(path.native()); }

}  // namespace ambervane
