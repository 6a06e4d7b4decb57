#include "mailformats/mbox_reader.h"

#include <system_error>
#include <utility>

#include "mailformats/folder_listing.h"
#include "mailformats/import_error.h"
#include "mailformats/message_file.h"

namespace ambervane {

namespace fs = std::filesystem;

namespace {

/// How much of the mapping may stay in memory behind the message at hand.
constexpr std::size_t kForgetBytes = std::size_t{64} << 20;

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

bool MboxReader::read(const MappedFile& mapped, const Body& body,
                      const Unreadable& unreadable) const {
  const BytesView bytes = mapped.bytes();
  const std::string originPath = pathText(file_);
  std::size_t forgotten = 0;
  std::size_t start = nextMboxStart(bytes, 0);
  for (std::uint64_t ordinal = 1; start != BytesView::npos; ++ordinal) {
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
      if (!body(std::move(source))) return false;
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
  return true;
}

std::string MboxReader::displayName() const {
  const bool inPackage =
      file_.filename() == "mbox" && lowercaseExtension(ownName(file_.parent_path())) == "mbox";
  return ownName(inPackage ? file_.parent_path() : file_);
}

void MboxReader::forEachMessage(const Body& body, const Unreadable& unreadable) {
  read(*open(file_), body, unreadable);
}

}  // namespace ambervane
