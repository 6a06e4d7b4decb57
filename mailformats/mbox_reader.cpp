#include "mailformats/mbox_reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <system_error>
#include <utility>

#include "base/text.h"
#include "mailformats/folder_listing.h"
#include "mailformats/import_error.h"
#include "mailformats/message_file.h"

namespace ambervane {

namespace fs = std::filesystem;

namespace {

/// How much of the mapping may stay in memory behind the message at hand.
constexpr std::size_t kForgetBytes = std::size_t{64} << 20;

/// Watches a mapped file, because reading a page that lies no longer in it ends the process.
class SizeWatch {
 public:
  SizeWatch(const fs::path& file, std::size_t mappedBytes)
      : file_(file), mappedBytes_(mappedBytes), before_(state()) {}

  bool isCutShort() const {
    const auto now = state();
    // A file that has been replaced by another one stays whole for those who have it open.
    return now && before_ && now->st_dev == before_->st_dev && now->st_ino == before_->st_ino &&
           static_cast<std::uint64_t>(now->st_size) < mappedBytes_;
  }

 private:
  std::optional<struct stat> state() const {
    struct stat info {};
    if (::stat(file_.c_str(), &info) != 0) return std::nullopt;
    return info;
  }

  const fs::path& file_;
  std::size_t mappedBytes_;
  std::optional<struct stat> before_;
};

/// Tells what lies in front of the first message, unless it is nothing but blank lines.
void reportHead(const fs::path& file, BytesView head, bool isWholeFile,
                const MessageImporter::Unreadable& unreadable) {
  if (!unreadable || std::all_of(head.begin(), head.end(), isAsciiSpace)) return;
  unreadable(unreadableItem(file, isWholeFile
                                      ? "no message in it begins with \"From \""
                                      : std::to_string(head.size()) +
                                            " bytes before the first message were passed over"));
}

}  // namespace

MboxReader::MboxReader(fs::path file, std::string folderPath, MboxVariant variant)
    : file_(std::move(file)), folderPath_(std::move(folderPath)), variant_(variant) {}

std::shared_ptr<const MappedFile> MboxReader::open(const fs::path& file) {
  // Asked before opening, which would wait for the writer of a pipe.
  std::error_code ignored;
  const fs::file_status status = fs::status(file, ignored);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    throw ImportError(ImportError::Unreadable{unreadableItem(file, "not a regular file")});
  }
  try {
    return MappedFile::open(file);
  } catch (const FileError& error) {
    throw ImportError(ImportError::Unreadable{unreadableItem(file, error.error())});
  }
}

MboxReader::End MboxReader::readMessages(const MappedFile& mapped, const Body& body,
                                         const Unreadable& unreadable) const {
  const BytesView bytes = mapped.bytes();
  const SizeWatch watch(file_, bytes.size());
  const std::string originPath = pathText(file_);
  std::size_t forgotten = 0;
  std::size_t start = nextMboxStart(bytes, 0);
  reportHead(file_, bytes.substr(0, start), start == BytesView::npos, unreadable);
  for (std::uint64_t ordinal = 1; start != BytesView::npos; ++ordinal) {
    if (watch.isCutShort()) return End::cutShort;
    const std::size_t next = nextMboxStart(bytes, start + 1);
    const BytesView segment = bytes.substr(start, next - start);
    if (segment.size() <= kMaxMessageBytes) {
      MboxMessage message = readMboxSegment(segment, variant_);
      SourceMessage source;
      source.raw = std::move(message.raw);
      source.folderPath = folderPath_;
      source.flags = std::move(message.flags);
      source.internalDate = message.internalDate;
      source.sourceIdentifier = std::to_string(ordinal);
      source.originPath = originPath;
      if (!body(std::move(source))) return End::stopped;
    } else if (unreadable) {
      unreadable(unreadableItem(
          file_, "message " + std::to_string(ordinal) + " is too large for a message"));
    }
    if (start - forgotten >= kForgetBytes) {
      mapped.forgetBefore(start);
      forgotten = start;
    }
    start = next;
  }
  return End::complete;
}

bool MboxReader::read(const MappedFile& mapped, const Body& body,
                      const Unreadable& unreadable) const {
  const End end = readMessages(mapped, body, unreadable);
  if (end == End::cutShort && unreadable) unreadable(cutShortItem());
  return end != End::stopped;
}

bool MboxReader::read(const fs::path& file, const std::string& folderPath, const Body& body,
                      const Unreadable& unreadable) {
  std::shared_ptr<const MappedFile> mapped;
  try {
    mapped = open(file);
  } catch (const ImportError& error) {
    const auto* const reason = std::get_if<ImportError::Unreadable>(&error.reason());
    if (unreadable && reason != nullptr) unreadable(reason->item);
    return true;
  }
  return MboxReader(file, folderPath).read(*mapped, body, unreadable);
}

std::string MboxReader::cutShortItem() const {
  return unreadableItem(file_, "it became shorter while it was read");
}

std::string MboxReader::displayName() const {
  const bool inPackage =
      file_.filename() == "mbox" && lowercaseExtension(ownName(file_.parent_path())) == "mbox";
  return ownName(inPackage ? file_.parent_path() : file_);
}

void MboxReader::forEachMessage(const Body& body, const Unreadable& unreadable) {
  if (readMessages(*open(file_), body, unreadable) == End::cutShort) {
    throw ImportError(ImportError::Unreadable{cutShortItem()});
  }
}

}  // namespace ambervane
