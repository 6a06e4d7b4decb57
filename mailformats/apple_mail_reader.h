#ifndef AMBERVANE_MAILFORMATS_APPLE_MAIL_READER_H_
#define AMBERVANE_MAILFORMATS_APPLE_MAIL_READER_H_

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "mailformats/message_importer.h"

namespace ambervane {

/// Reads the ".emlx" files of an Apple Mail store, of one account or of one mailbox in it. Messages
/// whose attachments lie apart (".partial.emlx") are not whole: they are reported and left out
/// unless they are asked for, and then taken as they stand. Mail of other formats found on the way
/// is reported.
class AppleMailReader final : public MessageImporter {
 public:
  struct MailStoreStatus {
    enum class Kind { found, accessDenied, noMailStore };
    Kind kind = Kind::noMailStore;
    std::filesystem::path path;  ///< the store, or what cannot be read; else empty
    friend bool operator==(const MailStoreStatus&, const MailStoreStatus&) = default;
  };
  /// Whether a folder has the name of a store: "V10".
  static bool isStoreName(std::string_view name) noexcept;
  /// The newest store ("Library/Mail/V10") below the folder of a user.
  static MailStoreStatus locateMailStore(const std::filesystem::path& home);

  explicit AppleMailReader(std::filesystem::path root, bool includePartial = false);

  /// The mail folder of the files in a folder: of `path`, its path below the root, the names that
  /// end in ".mbox"; without any of these the folder's own name.
  static std::string folderPath(std::string_view path, const std::string& ownName);

  std::string displayName() const override;
  /// The number of message files.
  std::optional<std::int64_t> estimatedCount() const override;
  void forEachMessage(const Body& body, const Unreadable& unreadable) override;

 private:
  using VisitFile =
      std::function<bool(const std::filesystem::path& file, const std::string& folder)>;

  /// Calls `visit` for each file to read until it returns false; `folder` is the mail folder.
  void forEachFile(const VisitFile& visit, const Unreadable& unreadable) const;
  static bool read(const std::filesystem::path& file, const std::string& folder, const Body& body,
                   const Unreadable& unreadable);

  std::filesystem::path root_;
  bool includePartial_;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_APPLE_MAIL_READER_H_
