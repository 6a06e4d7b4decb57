#include "mailformats/source_detector.h"

#include <cerrno>
#include <deque>
#include <string>
#include <system_error>
#include <utility>

#include "base/file.h"
#include "base/text.h"
#include "mailformats/apple_mail_reader.h"
#include "mailformats/container.h"
#include "mailformats/container_reader.h"
#include "mailformats/eml_reader.h"
#include "mailformats/folder_listing.h"
#include "mailformats/import_error.h"
#include "mailformats/maildir_reader.h"
#include "mailformats/mbox_folder_reader.h"
#include "mailformats/mbox_reader.h"
#include "mailformats/message_file.h"
#include "mailformats/portable_export_reader.h"
#include "mailformats/portable_manifest.h"
#include "mailformats/thunderbird_reader.h"

namespace ambervane::SourceDetector {
namespace {

namespace fs = std::filesystem;

// How many entries of a tree detection looks into, so that it stays quick on a network volume and
// on a store of a million files.
constexpr int kMaxEntries = 4001;

bool isFolder(const fs::path& path) {
  std::error_code ignored;
  return fs::is_directory(path, ignored);
}

bool isRegularFile(const fs::path& path) {
  std::error_code ignored;
  return fs::is_regular_file(path, ignored);
}

bool isThere(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(path, ignored);
}

bool isMailbox(const fs::path& file) {
  try {
    return MboxFolderReader::isMailbox(file);
  } catch (const FileError&) {
    return false;
  }
}

/// What the tree below a folder tells.
struct Tree {
  bool emlx = false;
  bool mailboxes = false;  ///< mbox files or Maildirs that MboxFolderReader reads
};

/// Looks at the first `kMaxEntries` entries of the tree, those near the root first. Links to
/// folders are not followed.
Tree lookInto(const fs::path& root) {
  Tree tree;
  std::deque<fs::path> folders{root};
  std::deque<fs::path> passedOver;  // taken last: MboxFolderReader does not read these
  for (int seen = 0; !folders.empty() || !passedOver.empty();) {
    const bool isRead = !folders.empty();
    std::deque<fs::path>& pending = isRead ? folders : passedOver;
    const fs::path folder = std::move(pending.front());
    pending.pop_front();
    const bool inMaildir = MaildirReader::isMaildir(folder);
    std::error_code error;
    std::error_code ignored;
    for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator();
         at.increment(error)) {
      const fs::path& path = at->path();
      if (path.extension() == ".emlx") {
        tree.emlx = true;
        return tree;
      }
      const bool taken =
          isRead && !MboxFolderReader::passesOver(path.filename().native(), inMaildir);
      const bool isSubfolder = !at->is_symlink(ignored) && at->is_directory(ignored);
      if (isSubfolder) (taken ? folders : passedOver).push_back(path);
      if (taken && !tree.mailboxes) {
        tree.mailboxes = isSubfolder ? MaildirReader::isMaildir(path)
                                     : at->is_regular_file(ignored) && isMailbox(path);
      }
      if (++seen >= kMaxEntries) return tree;
    }
  }
  return tree;
}

/// What the names in a folder tell; gathered in one pass, as there may be a million.
struct Names {
  bool any = false;
  bool emlx = false;
  bool eml = false;
  bool msg = false;
  bool mbox = false;
  bool onlyNumbers = true;
  bool numberedFile = false;
};

Names namesIn(const fs::path& folder) {
  Names names;
  std::error_code error;
  std::error_code ignored;
  for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator();
       at.increment(error)) {
    const std::string name = at->path().filename().native();
    const std::string lower = asciiLowercase(name);
    names.any = true;
    names.emlx |= name.ends_with(".emlx");
    names.eml |= lower.ends_with(".eml");
    names.msg |= lower.ends_with(".msg");
    names.mbox |= name.ends_with(".mbox") && !name.starts_with('.');
    names.onlyNumbers &= isNumber(name);
    // A tree of folders named after years has numbers too, and is no MH folder.
    names.numberedFile = names.numberedFile || (names.onlyNumbers && at->is_regular_file(ignored));
  }
  // A listing that fails counts as empty.
  return error ? Names{} : names;
}

bool isPortableExport(const fs::path& folder) {
  const fs::path manifest = folder / PortableManifest::kFileName;
  if (!isRegularFile(manifest)) return false;
  try {
    return PortableManifest::read(MappedFile::open(manifest)->bytes(),
                                  [](PortableManifest::Entry&&) {});
  } catch (const FileError&) {
    return false;
  }
}

/// "Mail/V10", the folder Apple Mail keeps its store in.
bool isAppleMailRoot(const fs::path& folder) {
  std::error_code ignored;
  return AppleMailReader::isStoreName(ownName(folder)) &&
         ownName(fs::absolute(folder, ignored) / "..") == "Mail";
}

/// Whether the folders of Maildir++ lie in a root that has no INBOX of its own.
bool holdsMaildirPlusPlus(const fs::path& folder) {
  std::error_code error;
  for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator();
       at.increment(error)) {
    if (at->path().filename().native().starts_with('.') && MaildirReader::isMaildir(at->path())) {
      return true;
    }
  }
  return false;
}

MailSourceKind detectFolder(const fs::path& folder) {
  using Kind = MailSourceKind;
  if (MaildirReader::isMaildir(folder)) return Kind::maildir;
  if (isPortableExport(folder)) return Kind::portableExport;
  if (ownName(folder).ends_with(".mbox")) {
    return isRegularFile(folder / "mbox") ? Kind::appleMailPackage : Kind::appleMail;
  }
  if (isAppleMailRoot(folder)) return Kind::appleMail;
  if (isThere(folder / "prefs.js") && isThere(folder / "Mail")) return Kind::thunderbirdProfile;

  const Names names = namesIn(folder);
  if (!names.any) return Kind::unknown;
  if (names.emlx) return Kind::appleMail;
  if (names.onlyNumbers && names.numberedFile) return Kind::mhFolder;
  if (names.eml) return Kind::emlDirectory;
  if (names.msg) return Kind::outlookMessageFolder;
  const Tree tree = lookInto(folder);
  if (tree.emlx) return Kind::appleMail;
  if (tree.mailboxes) return Kind::mboxFolder;
  if (holdsMaildirPlusPlus(folder)) return Kind::maildir;
  return names.mbox ? Kind::appleMail : Kind::emlDirectory;
}

MailSourceKind detectFile(const fs::path& file) {
  Bytes start;
  try {
    start = fileStart(file, 8);
  } catch (const FileError&) {
    return MailSourceKind::emlFile;
  }
  if (looksLikeOLM(file, start)) return MailSourceKind::olm;
  if (looksLikePST(start)) return MailSourceKind::pst;
  if (looksLikeMbox(start)) return MailSourceKind::mbox;
  if (looksLikeMSG(start)) return MailSourceKind::outlookMessage;
  if (looksLikeGzip(start)) return MailSourceKind::gzipFile;
  if (looksLikeZip(start)) return MailSourceKind::zipFile;
  return MailSourceKind::emlFile;
}

/// Whether the system refuses to let the file be opened and its first byte be read.
bool isRefused(const fs::path& file) {
  try {
    fileStart(file, 1);
    return false;
  } catch (const FileError& error) {
    return isPermissionDenied(error.error());
  }
}

/// The same of a folder: its listing can be allowed and its content refused. One file that opens is
/// enough to go on and report the others; those nearest to the root are tried first.
bool isFolderRefused(const fs::path& root) {
  constexpr int kTriedFiles = 8;
  std::deque<fs::path> folders{root};
  bool anyRefused = false;
  int tried = 0;
  for (int seen = 0; !folders.empty(); folders.pop_front()) {
    std::error_code error;
    std::error_code ignored;
    for (fs::directory_iterator at(folders.front(), error);
         !error && at != fs::directory_iterator(); at.increment(error)) {
      if (++seen > kMaxEntries) return anyRefused;
      if (at->is_directory(ignored)) {
        if (!at->is_symlink(ignored)) folders.push_back(at->path());
      } else if (at->is_regular_file(ignored)) {
        if (!isRefused(at->path())) return false;
        anyRefused = true;
        if (++tried == kTriedFiles) return true;
      }
    }
    anyRefused = anyRefused || isPermissionDenied(error.value());
  }
  return anyRefused;
}

}  // namespace

fs::path mailFolder(const fs::path& path) {
  const fs::path messages = path / "messages";
  return isFolder(messages) && isThere(path / "index.json") ? messages : path;
}

MailSourceKind detect(const fs::path& path) {
  const fs::path root = mailFolder(path);
  if (isFolder(root)) return detectFolder(root);
  return isRegularFile(root) ? detectFile(root) : MailSourceKind::unknown;
}

std::unique_ptr<MessageImporter> importer(const fs::path& path, MailSourceKind kind) {
  const fs::path root = mailFolder(path);
  const auto mailboxName = [&] { return std::string(withoutMboxExtension(ownName(root))); };
  switch (kind) {
    case MailSourceKind::mbox:
      return std::make_unique<MboxReader>(root, mailboxName());
    case MailSourceKind::appleMailPackage:
      return std::make_unique<MboxReader>(root / "mbox", mailboxName());
    case MailSourceKind::maildir:
      return std::make_unique<MaildirReader>(root);
    case MailSourceKind::emlDirectory:
    case MailSourceKind::emlFile:
    case MailSourceKind::outlookMessageFolder:
      return std::make_unique<EMLReader>(root, true);
    case MailSourceKind::mhFolder:
      return std::make_unique<EMLReader>(root, false, std::set<std::string, std::less<>>{});
    case MailSourceKind::mboxFolder:
      return std::make_unique<MboxFolderReader>(root);
    case MailSourceKind::gzipFile:
    case MailSourceKind::zipFile:
      return std::make_unique<ContainerReader>(root);
    case MailSourceKind::appleMail:
      return std::make_unique<AppleMailReader>(root);
    case MailSourceKind::thunderbirdProfile:
      return std::make_unique<ThunderbirdReader>(root);
    case MailSourceKind::portableExport:
      return std::make_unique<PortableExportReader>(root);
    case MailSourceKind::olm:
    case MailSourceKind::pst:
    case MailSourceKind::outlookMessage:
      throw ImportError(
          ImportError::NotYetImportable{pathText(path), std::string(kindLabel(kind))});
    case MailSourceKind::unknown:
      break;
  }
  throw ImportError(ImportError::Unsupported{pathText(path)});
}

std::optional<AccessProblem> accessProblem(const fs::path& path) {
  std::error_code error;
  const fs::path root = mailFolder(path);
  const fs::file_status status = fs::status(root, error);
  bool refused = isPermissionDenied(error.value());
  if (!refused && fs::is_directory(status)) refused = isFolderRefused(root);
  if (!refused && fs::is_regular_file(status)) refused = isRefused(root);
  if (!refused) return std::nullopt;
  std::string text = pathText(path);
  const auto remedy = AccessProblem::remedyFor(text);
  return AccessProblem{std::move(text), remedy};
}

}  // namespace ambervane::SourceDetector
