#ifndef AMBERVANE_MAILFORMATS_MBOX_READER_H_
#define AMBERVANE_MAILFORMATS_MBOX_READER_H_

#include <filesystem>
#include <memory>
#include <string>

#include "base/file.h"
#include "mailformats/mbox_format.h"
#include "mailformats/message_importer.h"

namespace ambervane {

/// Reads one mbox file of any variant. The file is mapped and one message copied at a time, so that
/// its size does not matter. Bytes in front of the first message, and a file without any, are
/// reported. A file that another program cuts short is read up to there; being mapped, it must not
/// be cut in the very moment in which one message is copied.
class MboxReader final : public MessageImporter {
 public:
  MboxReader(std::filesystem::path file, std::string folderPath,
             MboxVariant variant = MboxVariant::detected);

  /// Maps an mbox file. Throws ImportError, also for a path that is no regular file.
  static std::shared_ptr<const MappedFile> open(const std::filesystem::path& file);
  /// Hands out the messages of a file that `open` has mapped. Returns false when `body` has
  /// stopped. A file that becomes shorter meanwhile is reported.
  bool read(const MappedFile& mapped, const Body& body, const Unreadable& unreadable) const;

  /// Opens and reads a file, reporting one that cannot be opened. Returns false when `body` has
  /// stopped.
  static bool read(const std::filesystem::path& file, const std::string& folderPath,
                   const Body& body, const Unreadable& unreadable);

  /// The file's name; of an Apple Mail package its folder's.
  std::string displayName() const override;
  std::optional<std::int64_t> estimatedCount() const override { return std::nullopt; }
  void forEachMessage(const Body& body, const Unreadable& unreadable) override;

 private:
  enum class End { complete, stopped, cutShort };
  End readMessages(const MappedFile& mapped, const Body& body, const Unreadable& unreadable) const;
  std::string cutShortItem() const;

  std::filesystem::path file_;
  std::string folderPath_;
  MboxVariant variant_;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_MBOX_READER_H_
