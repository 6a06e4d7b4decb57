#ifndef AMBERVANE_MAILFORMATS_THUNDERBIRD_READER_H_
#define AMBERVANE_MAILFORMATS_THUNDERBIRD_READER_H_

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "mailformats/message_importer.h"

namespace ambervane {

/// Reads the mailboxes of a Thunderbird profile: the mbox files below "Mail" and "ImapMail", with
/// the server's folder for the first part of their mail folder ("Local Folders/Archives/2023").
/// Mailboxes that the program keeps as one file a message are reported.
class ThunderbirdReader final : public MessageImporter {
 public:
  using VisitFile =
      std::function<bool(const std::filesystem::path& file, const std::string& folder)>;

  explicit ThunderbirdReader(std::filesystem::path profile);

  /// Calls `visit` for each mbox file, parents before the folders in them, until it returns false;
  /// `folder` is its mail folder. Throws ImportError when the profile cannot be listed.
  void forEachMboxFile(const VisitFile& visit, const Unreadable& unreadable) const;

  std::string displayName() const override;
  std::optional<std::int64_t> estimatedCount() const override { return std::nullopt; }
  void forEachMessage(const Body& body, const Unreadable& unreadable) override;

 private:
  std::filesystem::path profile_;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_THUNDERBIRD_READER_H_
