#ifndef AMBERVANE_MAILFORMATS_FOLDER_LISTING_H_
#define AMBERVANE_MAILFORMATS_FOLDER_LISTING_H_

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "mailformats/message_importer.h"

namespace ambervane {

/// One name in a folder. A link to a file counts as the file; `other` is a pipe, socket or device,
/// which must never be opened, as that may block for good.
struct FolderEntry {
  enum class Kind { file, folder, folderLink, other };
  std::string name;  ///< the bytes the system has, not necessarily UTF-8
  Kind kind = Kind::file;
};

/// What a folder holds, without "." and "..". Numbers come first, by their value, then the other
/// names by their bytes, so that an import can be repeated. Throws FileError.
std::vector<FolderEntry> listFolder(const std::filesystem::path& folder);

/// A folder met on a walk.
struct WalkedFolder {
  std::filesystem::path path;
  std::string name;  ///< below the root, UTF-8, "/" between names; empty for the root
  std::vector<FolderEntry> entries;
};

/// Visits `root` and the folders below it, parents first. The walk goes down into the folders that
/// `visit` leaves in `entries`, and ends when it returns false. Links to folders are not followed,
/// so the walk ends; one that leads out of the tree is reported, and so is a folder that cannot be
/// listed. Throws ImportError when the root cannot be.
void walkFolders(const std::filesystem::path& root, const std::function<bool(WalkedFolder&)>& visit,
                 const MessageImporter::Unreadable& unreadable);

/// Counts the files with mail of a format that the reader at hand does not take, to say so once a
/// folder: an archive must not be believed complete where it is not.
class PassedOver {
 public:
  void add(std::string_view fileName);
  /// Reports what was added, if anything.
  void report(const std::filesystem::path& folder,
              const MessageImporter::Unreadable& unreadable) const;

 private:
  std::size_t count_ = 0;
  std::string example_;
};

/// Whether a file name is that of a store with mail of its own kind (emlx, olm, ost, pst).
bool isOtherStoreName(std::string_view fileName);

/// Whether `name` is a decimal number, as files of an MH folder are called.
bool isNumber(std::string_view name) noexcept;
/// The extension in lower case, without the dot; empty when there is none, or only a leading dot.
std::string lowercaseExtension(std::string_view fileName);
/// A name without a final ".mbox" of any case; one that is nothing else stays.
std::string_view withoutMboxExtension(std::string_view name) noexcept;
/// The path's own name as UTF-8, also for "." or with "/" at the end.
std::string ownName(const std::filesystem::path& path);
/// "<path>: <reason>", and with an errno value the system's words for it.
std::string unreadableItem(const std::filesystem::path& path, std::string_view reason);
std::string unreadableItem(const std::filesystem::path& path, int error);

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_FOLDER_LISTING_H_
