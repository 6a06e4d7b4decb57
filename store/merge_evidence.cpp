#include "store/merge_evidence.h"

#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <vector>

#include "base/digest.h"
#include "base/file.h"
#include "base/text.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr const char* kHeadFile = "chain-head.txt";
constexpr std::size_t kCopyBytes = 4194304;
constexpr std::size_t kMaximumNameLength = 100;

/// The identifier as the name of a folder. It comes out of a file, and must not lead elsewhere.
std::string folderName(const std::string& archiveID) {
  const auto isPlain = [](char c) {
    return isAsciiDigit(c) || c == '-' || c == '_' || (c >= 'a' && c <= 'z') ||
           (c >= 'A' && c <= 'Z');
  };
  const bool isUsable = !archiveID.empty() && archiveID.size() <= kMaximumNameLength &&
                        std::all_of(archiveID.begin(), archiveID.end(), isPlain);
  return isUsable ? archiveID : sha256Hex(archiveID);
}

void copyFile(const fs::path& from, const fs::path& to) {
  const auto source = MappedFile::open(from);
  AppendFile copy = AppendFile::open(to, 0600);
  copy.truncate(0);
  const BytesView bytes = source->bytes();
  for (std::size_t at = 0; at < bytes.size(); at += kCopyBytes) {
    copy.append(bytes.substr(at, kCopyBytes));
    source->forgetBefore(at);
  }
  copy.sync();
}

/// Locked against appends, so that no entry is copied by half. An archive without a journal is
/// shown as it is.
void copyJournal(const fs::path& from, const fs::path& to) {
  std::error_code ignored;
  if (!fs::exists(from, ignored)) return;
  const FileHandle journal = openForReading(from);
  int locked = 0;
  do {
    locked = systemFileLock(journal.descriptor(), LOCK_SH);
  } while (locked != 0 && errno == EINTR);
  // Where there are no locks nobody else can be kept out; closing the file gives this one back.
  copyFile(from, to);
}

/// Every file below `from`, folders made as needed; links are not followed.
void copyTree(const fs::path& from, const fs::path& to) {
  std::error_code error;
  std::vector<fs::path> files;
  for (fs::recursive_directory_iterator it(from, error), end; !error && it != end;
       it.increment(error)) {
    std::error_code ignored;
    if (fs::is_regular_file(it->symlink_status(ignored))) files.push_back(it->path());
  }
  if (error == std::errc::no_such_file_or_directory) return;
  if (error) throw FileError(FileError::Action::list, from, error.value());
  std::sort(files.begin(), files.end());
  for (const fs::path& file : files) {
    const fs::path copy = to / file.lexically_relative(from);
    createFolders(copy.parent_path());
    copyFile(file, copy);
  }
}

std::string headOf(const fs::path& journal) {
  return AuditJournal(journal, AuditJournal::defaultActor, false).head();
}

}  // namespace

MergeEvidence makeEvidenceDirectory(MailArchive& target, MailArchive& source) {
  const fs::path folder = target.url() / "chain" / "imported";
  const std::string name = folderName(source.manifest().archiveID);
  const fs::path journal = fs::path("chain") / "journal.jsonl";
  // As the file stands now: another process may have appended since the source was opened.
  const std::string present = headOf(source.url() / journal);
  fs::path path;
  for (int number = 1;; ++number) {
    path = folder / (number == 1 ? name : name + "-" + std::to_string(number));
    const auto head = readFileIfPossible(path / kHeadFile);
    if (!head) break;
    if (trim(*head) == present) return {path, present};
  }
  createFolders(path / "chain");
  copyFile(source.url() / "archive.json", path / "archive.json");
  // Seals before the journal, which then has every entry that they speak of.
  copyTree(source.url() / "chain" / "seals", path / "chain" / "seals");
  copyTree(source.url() / "chain" / "imported", path / "chain" / "imported");
  copyJournal(source.url() / journal, path / journal);
  MergeEvidence evidence{path, headOf(path / journal)};
  writeFileAtomically(path / kHeadFile, evidence.chainHead + "\n");
  return evidence;
}

}  // namespace ambervane
