#ifndef AMBERVANE_MAILFORMATS_MBOX_FOLDER_READER_H_
#define AMBERVANE_MAILFORMATS_MBOX_FOLDER_READER_H_

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "mailformats/message_importer.h"

namespace ambervane {

/// Reads a tree of mailboxes: every mbox file, each as a folder of its own, and then every Maildir.
/// Mail of other formats found on the way is not read but reported.
class MboxFolderReader final : public MessageImporter {
 public:
  struct File {
    std::filesystem::path path;
    std::string folder;  ///< its path below the root, without ".mbox"
  };

  explicit MboxFolderReader(std::filesystem::path root);

  /// The mbox files below `root`, sorted by folder: those named "*.mbox", and those of another name
  /// that begin with "From " and have no extension of a message file. Names beginning with "." are
  /// passed over, and so is what a Maildir holds. Throws ImportError when the root cannot be
  /// listed; what cannot be read below it is reported.
  static std::vector<File> files(const std::filesystem::path& root, const Unreadable& unreadable);
  /// Whether `file` is one of those by its name and content. Throws FileError when it cannot be
  /// read.
  static bool isMailbox(const std::filesystem::path& file);
  /// The mail folder of an mbox file in the folder `parent` (UTF-8, "/" between names): its path
  /// without ".mbox", each name. The file "mbox" of an Apple Mail package stands for the package.
  static std::string folderName(std::string_view parent, std::string_view fileName);
  /// Whether a file or folder of that name is passed over, in a Maildir or in any other folder.
  static bool passesOver(std::string_view name, bool inMaildir) noexcept;

  std::string displayName() const override;
  std::optional<std::int64_t> estimatedCount() const override { return std::nullopt; }
  void forEachMessage(const Body& body, const Unreadable& unreadable) override;

 private:
  std::filesystem::path root_;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_MBOX_FOLDER_READER_H_
