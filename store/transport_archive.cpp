#include "store/transport_archive.h"

#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <memory>
#include <system_error>
#include <vector>

#include "base/bytes.h"
#include "base/digest.h"
#include "base/file.h"
#include "base/text.h"
#include "store/storage_access.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kHashBytes = 1048576;
constexpr double kProgressStep = 0.001;
/// An extra field with the time in UTC to the second; that of the format itself is local, of no
/// known zone, and even.
constexpr zip_uint16_t kTimeField = 0x5455;
constexpr zip_uint32_t kDosFolder = 0x10;

struct ZipDiscarder {
  void operator()(zip_t* archive) const { ::zip_discard(archive); }
};
using ZipArchive = std::unique_ptr<zip_t, ZipDiscarder>;

[[noreturn]] void fail(zip_error_t* error, const std::string& about = {}) {
  std::string reason = ::zip_error_strerror(error);
  if (!about.empty()) reason = printable(about) + ": " + reason;
  throw TransportError(TransportError::WriteFailed{::zip_error_code_zip(error), std::move(reason)});
}

[[noreturn]] void failAt(int status, const fs::path& path, int error) {
  throw TransportError(TransportError::WriteFailed{
      status, printable(path.native()) + ": " + std::generic_category().message(error)});
}

/// What stands at a path, itself when it is a link.
struct stat factsOf(const fs::path& path) {
  struct stat facts {};
  if (::lstat(path.c_str(), &facts) != 0) failAt(ZIP_ER_READ, path, errno);
  return facts;
}

/// Everything in a folder that can be wrapped, by path: a folder stands before what is in it.
std::vector<fs::path> contents(const fs::path& folder) {
  std::vector<fs::path> paths;
  std::error_code error;
  for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end;
       it.increment(error)) {
    const fs::path& path = it->path();
    const mode_t mode = factsOf(path).st_mode;
    if (!S_ISDIR(mode) && !S_ISREG(mode) && !S_ISLNK(mode)) continue;
    // The library opens a file late and does not say which one it could not open.
    if (S_ISREG(mode) && ::access(path.c_str(), R_OK) != 0) failAt(ZIP_ER_OPEN, path, errno);
    paths.push_back(path);
  }
  if (error) failAt(ZIP_ER_READ, folder, error.value());
  std::sort(paths.begin(), paths.end());
  return paths;
}

class Wrapping {
 public:
  Wrapping(const fs::path& to, std::function<void(double)> progress)
      : progress_(std::move(progress)) {
    int code = 0;
    archive_.reset(::zip_open(to.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &code));
    if (!archive_) {
      zip_error_t error;
      ::zip_error_init_with_code(&error, code);
      fail(&error);
    }
    ::zip_register_progress_callback_with_state(
        archive_.get(), kProgressStep,
        [](zip_t* /*archive*/, double part, void* self) {
          static_cast<Wrapping*>(self)->progress_(part);
        },
        nullptr, this);
  }

  void add(const fs::path& path, const std::string& name) {
    const struct stat facts = factsOf(path);
    // Names that are no UTF-8 keep their bytes.
    const zip_flags_t flags = isValidUtf8(name) ? ZIP_FL_ENC_UTF_8 : ZIP_FL_ENC_CP437;
    zip_int64_t index = -1;
    if (S_ISDIR(facts.st_mode)) {
      index = ::zip_dir_add(archive_.get(), name.c_str(), flags);
    } else {
      zip_source_t* const source = S_ISLNK(facts.st_mode)
                                       ? linkSource(path)
                                       : ::zip_source_file(archive_.get(), path.c_str(), 0, -1);
      if (source == nullptr) fail(::zip_get_error(archive_.get()), path.native());
      index = ::zip_file_add(archive_.get(), name.c_str(), source, flags);
      if (index < 0) ::zip_source_free(source);
    }
    if (index < 0) fail(::zip_get_error(archive_.get()), path.native());
    describe(static_cast<zip_uint64_t>(index), facts, path);
  }

  /// Reads the files and writes the whole, under another name until it is done.
  void finish() {
    if (::zip_close(archive_.get()) != 0) fail(::zip_get_error(archive_.get()));
    // Closing has freed it.
    static_cast<void>(archive_.release());
  }

 private:
  zip_source_t* linkSource(const fs::path& path) {
    std::error_code error;
    links_.push_back(std::make_unique<std::string>(fs::read_symlink(path, error).native()));
    if (error) failAt(ZIP_ER_READ, path, error.value());
    const std::string& target = *links_.back();
    return ::zip_source_buffer(archive_.get(), target.data(), target.size(), 0);
  }

  void describe(zip_uint64_t index, const struct stat& facts, const fs::path& path) {
    const auto mode = static_cast<zip_uint32_t>(facts.st_mode);
    const zip_uint32_t attributes = mode << 16 | (S_ISDIR(mode) ? kDosFolder : 0);
    const time_t time = facts.st_mtime;
    Bytes field(1, '\1');
    appendLittleEndian32(field, static_cast<std::uint32_t>(time));
    const auto* const data =
        reinterpret_cast<const zip_uint8_t*>(field.data());  // NOLINT: the library's type of a byte
    zip_t* const archive = archive_.get();
    if (::zip_file_set_external_attributes(archive, index, 0, ZIP_OPSYS_UNIX, attributes) != 0 ||
        ::zip_file_set_mtime(archive, index, time, 0) != 0 ||
        ::zip_file_extra_field_set(archive, index, kTimeField, ZIP_EXTRA_FIELD_NEW, data,
                                   static_cast<zip_uint16_t>(field.size()),
                                   ZIP_FL_LOCAL | ZIP_FL_CENTRAL) != 0) {
      fail(::zip_get_error(archive), path.native());
    }
  }

  std::function<void(double)> progress_;
  std::vector<std::unique_ptr<std::string>> links_;  ///< borrowed by the library until the end
  ZipArchive archive_;
};

}  // namespace

LocalizedMessage TransportError::message() const {
  struct Words {
    LocalizedMessage operator()(const NotAFolder& r) const {
      return {"%@ is not a folder, so there is nothing to wrap", {printable(r.path)}};
    }
    LocalizedMessage operator()(const WriteFailed& r) const {
      const std::string status = std::to_string(r.status);
      if (r.reason.empty()) return {"Could not write the .zip (ditto exited %@)", {status}};
      return {"Could not write the .zip (ditto exited %1$@): %2$@", {status, r.reason}};
    }
  };
  return std::visit(Words{}, reason_);
}

TransportArchive TransportArchive::zip(const fs::path& folder, const fs::path& to,
                                       const TransportProgress& progress) {
  const fs::path root = fs::absolute(folder / "").lexically_normal().parent_path();
  std::error_code error;
  if (!fs::is_directory(root, error)) {
    throw TransportError(TransportError::NotAFolder{folder.native()});
  }
  const std::string name = root.filename().native();
  const auto report = [&](const char* phase, std::int64_t done, std::int64_t total) {
    if (progress) progress(phase + printable(name), done, total);
  };
  report("Measuring ", 0, 0);
  const std::int64_t total = directorySize(root);
  const std::vector<fs::path> paths = contents(root);

  report("Writing ", 0, total);
  Wrapping wrapping(to, [&](double part) {
    report("Writing ", static_cast<std::int64_t>(part * static_cast<double>(total)), total);
  });
  wrapping.add(root, name);
  for (const fs::path& path : paths) {
    wrapping.add(path, (fs::path(name) / path.lexically_relative(root)).native());
  }
  fs::path digestFile = to;
  digestFile += ".sha256";
  // An older digest must not stand beside the new file.
  fs::remove(digestFile, error);
  wrapping.finish();
  AppendFile::open(to).sync();

  TransportArchive made{to, static_cast<std::int64_t>(fs::file_size(to, error)), {}};
  made.digest =
      sha256(to, [&](std::int64_t done, std::int64_t of) { report("Checksumming ", done, of); });
  writeFileAtomically(digestFile, made.digest + "  " + to.filename().native() + "\n");
  return made;
}

std::int64_t TransportArchive::directorySize(const fs::path& url) { return sizeOnDisk(url); }

std::string TransportArchive::sha256(
    const fs::path& of, const std::function<void(std::int64_t, std::int64_t)>& progress) {
  const auto file = MappedFile::open(of);
  const BytesView bytes = file->bytes();
  Sha256 hash;
  for (std::size_t at = 0; at < bytes.size(); at += kHashBytes) {
    hash.update(bytes.substr(at, kHashBytes));
    file->forgetBefore(at);
    if (progress) {
      progress(static_cast<std::int64_t>(std::min(at + kHashBytes, bytes.size())),
               static_cast<std::int64_t>(bytes.size()));
    }
  }
  return hexEncode(hash.finish());
}

}  // namespace ambervane
