#ifndef AMBERVANE_MAILFORMATS_MAILDIR_READER_H_
#define AMBERVANE_MAILFORMATS_MAILDIR_READER_H_

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "mailformats/message_importer.h"

namespace ambervane {

/// Reads a Maildir, the Maildir++ folders beside its "cur" and "new" (".Archive.2023" is the folder
/// "Archive/2023") and Maildirs in plain subfolders. A root that is no Maildir itself is read for
/// those in it.
class MaildirReader final : public MessageImporter {
 public:
  struct Entry {
    std::filesystem::path path;
    std::string folder;  ///< "INBOX" for the root, else the names below it joined with "/"
  };

  /// Without `recursive` only the direct subfolders of `root` are looked at.
  explicit MaildirReader(std::filesystem::path root, bool recursive = true);

  static bool isMaildir(const std::filesystem::path& folder);
  /// Whether a Maildir keeps messages in a folder of that name: "cur", "new" or "tmp".
  static bool isMessageFolderName(std::string_view name) noexcept;
  /// Every Maildir of the tree, parents first. Throws ImportError when the root cannot be listed.
  std::vector<Entry> maildirs(const Unreadable& unreadable) const;
  /// Hands out the messages of one Maildir, "cur" before "new". Returns false when `body` has
  /// stopped.
  static bool read(const Entry& entry, const Body& body, const Unreadable& unreadable);

  /// The flags in a file's name, behind ":2," or, from systems that forbid the colon, "!2," or
  /// ";2,".
  static std::set<MessageFlag> flags(std::string_view fileName, bool isNew);
  /// The seconds since 1970 a file's name begins with.
  static std::optional<Date> timestamp(std::string_view fileName) noexcept;

  std::string displayName() const override;
  std::optional<std::int64_t> estimatedCount() const override;
  void forEachMessage(const Body& body, const Unreadable& unreadable) override;

 private:
  std::filesystem::path root_;
  bool recursive_;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_MAILDIR_READER_H_
