#ifndef AMBERVANE_MAILFORMATS_EML_READER_H_
#define AMBERVANE_MAILFORMATS_EML_READER_H_

#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <string_view>

#include "mailformats/message_importer.h"

namespace ambervane {

/// Reads files that hold one message each: a tree of them, an MH folder or a single file. A file
/// that begins with "From " is read as mbox. Mail of other formats found on the way is not read but
/// reported.
class EMLReader final : public MessageImporter {
 public:
  /// The extensions of message files, in lower case.
  static const std::set<std::string, std::less<>>& messageExtensions();

  /// Takes the files whose extension is in `extensions`, of `root` alone or with `recursive` of its
  /// whole tree, and the numbered files of MH folders. No extensions: only numbered files. A root
  /// that is a file is the only file, whatever its name.
  EMLReader(std::filesystem::path root, bool recursive,
            std::set<std::string, std::less<>> extensions = messageExtensions());

  std::string displayName() const override;
  /// The number of files.
  std::optional<std::int64_t> estimatedCount() const override;
  void forEachMessage(const Body& body, const Unreadable& unreadable) override;

 private:
  using VisitFile =
      std::function<bool(const std::filesystem::path& file, const std::string& folder)>;

  bool takes(std::string_view fileName, bool numbered) const;
  /// Calls `visit` for each file to read until it returns false; `folder` is the mail folder.
  void forEachFile(const VisitFile& visit, const Unreadable& unreadable) const;
  static bool read(const std::filesystem::path& file, const std::string& folder, const Body& body,
                   const Unreadable& unreadable);

  std::filesystem::path root_;
  bool recursive_;
  std::set<std::string, std::less<>> extensions_;
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_EML_READER_H_
