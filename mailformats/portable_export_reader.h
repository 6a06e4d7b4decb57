#ifndef AMBERVANE_MAILFORMATS_PORTABLE_EXPORT_READER_H_
#define AMBERVANE_MAILFORMATS_PORTABLE_EXPORT_READER_H_

#include <filesystem>

#include "mailformats/message_importer.h"

namespace ambervane {

/// Reads a portable export of this program: the message files its manifest names, with the mail
/// folders, flags and dates that stand there. Nothing outside of the export is opened, whatever the
/// manifest says: no path that leads out of it, and no link.
class PortableExportReader final : public MessageImporter {
 public:
  explicit PortableExportReader(std::filesystem::path root);

  std::string displayName() const override;
  /// The number of entries; absent when the manifest cannot be read.
  std::optional<std::int64_t> estimatedCount() const override;
  void forEachMessage(const Body& body, const Unreadable& unreadable) override;

 private:
  std::filesystem::path root_;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_PORTABLE_EXPORT_READER_H_
