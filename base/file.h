#ifndef AMBERVANE_BASE_FILE_H_
#define AMBERVANE_BASE_FILE_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "base/bytes.h"
#include "base/localized_message.h"

namespace ambervane {

/// What the system refused to do with a file.
class FileError final : public TranslatableError {
 public:
  enum class Action { open, read, write, sync, create, rename, remove, list };
  FileError(Action action, std::filesystem::path path, int error)
      : action_(action), path_(std::move(path)), error_(error) {}
  Action action() const noexcept { return action_; }
  const std::filesystem::path& path() const noexcept { return path_; }
  int error() const noexcept { return error_; }  ///< an errno value
  LocalizedMessage message() const override;

 private:
  Action action_;
  std::filesystem::path path_;
  int error_;
};

/// One step that changes what the disk holds. All writing of ours passes through here, so that a
/// test can make any step fail, cut a write short or end the process at it.
struct FileStep {
  enum class Kind { create, write, sync, rename, remove };
  Kind kind;
  const std::filesystem::path& path;
  std::size_t bytes = 0;  ///< of a write, else 0
};
/// Called before each step; may throw FileError, or return how many bytes of a write to let through
/// before it fails with ENOSPC (`step.bytes` or more: all). For tests; an empty hook removes it.
void setFileStepHook(std::function<std::size_t(const FileStep&)> hook);

/// An open file descriptor, closed on destruction.
class FileHandle {
 public:
  FileHandle() = default;
  explicit FileHandle(int descriptor) noexcept : descriptor_(descriptor) {}
  FileHandle(FileHandle&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileHandle& operator=(FileHandle&& other) noexcept;
  ~FileHandle() { close(); }
  explicit operator bool() const noexcept { return descriptor_ >= 0; }
  int descriptor() const noexcept { return descriptor_; }
  void close() noexcept;

 private:
  int descriptor_ = -1;
};

/// Opens for reading, close-on-exec. Throws FileError.
FileHandle openForReading(const std::filesystem::path& path);

/// The whole of a file. Throws FileError. For files of bounded size; map the rest.
Bytes readFile(const std::filesystem::path& path);
/// As `readFile`, but absent for a file that does not exist or cannot be read.
std::optional<Bytes> readFileIfPossible(const std::filesystem::path& path);

/// Replaces `path` so that after a crash it holds the old or the new bytes, never a mixture:
/// temporary file "<name>.tmp-<process>" beside it, fsync, rename, fsync of the folder. Throws
/// FileError; the temporary file is removed then. `mode` is cut by the user's umask, as ever.
void writeFileAtomically(const std::filesystem::path& path, BytesView bytes, int mode = 0644);
/// Writes a file that is not there yet. Throws FileError, with EEXIST where anything, even a link
/// to nothing, stands under the name; no part of the file is left then.
void writeNewFile(const std::filesystem::path& path, BytesView bytes, int mode = 0644);

/// Gives a file another name in its folder, durably; what had that name is gone. Throws FileError.
void renameFile(const std::filesystem::path& from, const std::filesystem::path& to);

/// Creates a folder and those above it, durably. Throws FileError.
void createFolders(const std::filesystem::path& path);
/// Makes names created or renamed in a folder durable. Throws FileError.
void syncFolder(const std::filesystem::path& path);

/// A file open for appending: every write lands at its true end.
class AppendFile {
 public:
  /// Opens, and creates with `mode` (cut by the umask) where the file is missing; a new name is
  /// made durable. Throws FileError.
  static AppendFile open(const std::filesystem::path& path, int mode = 0644);

  /// Appends `bytes` whole. Throws FileError; some of them may then stand at the end of the file.
  void append(BytesView bytes);
  /// Flushes to the medium. Throws FileError; what is on disk is then unknown.
  void sync();
  /// The size the system reports now. Throws FileError.
  std::uint64_t size() const;
  /// Cuts the file back to `size` bytes. Throws FileError.
  void truncate(std::uint64_t size);
  int descriptor() const noexcept { return handle_.descriptor(); }
  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  AppendFile(FileHandle handle, std::filesystem::path path)
      : handle_(std::move(handle)), path_(std::move(path)) {}
  FileHandle handle_;
  std::filesystem::path path_;
};

/// A file mapped for reading. The bytes are valid as long as the object; an empty file maps to an
/// empty view.
class MappedFile {
 public:
  /// Throws FileError.
  static std::shared_ptr<const MappedFile> open(const std::filesystem::path& path);
  ~MappedFile();
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  BytesView bytes() const noexcept { return {data_, size_}; }
  /// Tells the system that the bytes before `offset` will not be read again.
  void forgetBefore(std::size_t offset) const noexcept;

 private:
  MappedFile(const char* data, std::size_t size) : data_(data), size_(size) {}
  const char* data_;
  std::size_t size_;
};

/// `path` as UTF-8 text for records and output; ill-formed bytes are replaced.
std::string pathText(const std::filesystem::path& path);

}  // namespace ambervane

#endif  // AMBERVANE_BASE_FILE_H_
