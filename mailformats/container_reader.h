#ifndef AMBERVANE_MAILFORMATS_CONTAINER_READER_H_
#define AMBERVANE_MAILFORMATS_CONTAINER_READER_H_

#include <filesystem>
#include <string>

#include "mailformats/message_importer.h"

namespace ambervane {

/// Reads the mail in a gzip file (one mbox or message) or a ZIP file (any number, in folders), and
/// in gzip files within a ZIP file. Nothing is unpacked to the disk, and of an mbox one message at
/// a time is held in memory.
///
/// Mail folders are those that would come out if a ZIP file were unpacked into a folder of its own
/// name. A member that is encrypted, damaged or a bomb is reported as "<file>/<member>: <reason>",
/// and the rest follows; what is wrong with all of a ZIP file, or with a gzip file, is an
/// ImportError, thrown behind the messages that could be read.
class ContainerReader final : public MessageImporter {
 public:
  explicit ContainerReader(std::filesystem::path file);

  std::string displayName() const override;
  std::optional<std::int64_t> estimatedCount() const override { return std::nullopt; }
  void forEachMessage(const Body& body, const Unreadable& unreadable) override;

 private:
  std::filesystem::path file_;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_CONTAINER_READER_H_
