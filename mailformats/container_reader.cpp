#include "mailformats/container_reader.h"

#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "base/file.h"
#include "base/text.h"
#include "mailcore/looks_like_mail.h"
#include "mailformats/container.h"
#include "mailformats/container_gzip.h"
#include "mailformats/container_mbox.h"
#include "mailformats/eml_reader.h"
#include "mailformats/folder_listing.h"
#include "mailformats/import_error.h"
#include "mailformats/maildir_reader.h"
#include "mailformats/mbox_folder_reader.h"
#include "mailformats/message_file.h"

namespace ambervane {

namespace fs = std::filesystem;

namespace {

/// The part of a member's path behind its last "/", and the one before it.
std::string_view nameOf(std::string_view path) { return path.substr(path.rfind('/') + 1); }
std::string_view parentOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == path.npos ? std::string_view() : path.substr(0, slash);
}

/// `name` without its extension, if it is one of these.
std::string_view withoutExtension(std::string_view name,
                                  const std::set<std::string, std::less<>>& extensions) {
  const std::string extension = lowercaseExtension(name);
  if (!extensions.contains(extension)) return name;
  return name.substr(0, name.size() - extension.size() - 1);
}

std::string_view withoutGzip(std::string_view name) {
  return withoutExtension(name, {"gz", "gzip"});
}

bool isMessageName(std::string_view name) {
  return EMLReader::messageExtensions().contains(lowercaseExtension(name));
}

/// What macOS puts beside the files of a ZIP file, and hidden files.
bool isByproduct(std::string_view path) {
  return path.starts_with("__MACOSX/") || nameOf(path).starts_with('.');
}

/// Whether a file is one of many in another file, by its first bytes; names what it is then.
std::string_view otherFormat(BytesView head) {
  constexpr std::size_t kTarMagicOffset = 257;
  if (looksLikeMSG(head)) return "an Outlook message";
  if (looksLikePST(head)) return "an Outlook personal store";
  if (looksLikeZip(head)) return "a ZIP file";
  if (looksLikeGzip(head)) return "a gzip file";
  if (head.size() > kTarMagicOffset && head.substr(kTarMagicOffset).starts_with("ustar")) {
    return "a tar file";
  }
  return {};
}

/// One run over a container.
class Run {
 public:
  Run(const fs::path& file, const MessageImporter::Body& body,
      const MessageImporter::Unreadable& unreadable)
      : file_(file), body_(body), unreadable_(unreadable) {}

  void readAll() {
    try {
      const auto container = openContainer(file_);
      isTree_ = container->isTree();
      while (const auto member = container->next()) {
        if (!readMember(*container, *member)) return;
      }
    } catch (const ContainerError& error) {
      throw ImportError(ImportError::Unreadable{unreadableItem(file_, error.message().text())});
    }
    passedOver_.report(file_, unreadable_);
    if (!anyTaken_) report(pathText(file_), "no file in it has the name of a message");
  }

 private:
  /// Where a member's mail belongs.
  struct Source {
    std::string path;        ///< in the container, without ".gz" once that is unpacked
    std::string originPath;  ///< of the member in messages and reports
  };

  /// Returns false when the body has stopped. Throws ContainerError for what concerns all members.
  bool readMember(Container& container, const Container::Member& member) {
    if (isTree_ && isByproduct(member.path)) return true;
    Source source{member.path, pathText(file_)};
    if (isTree_) source.originPath += "/" + member.path;
    if (isTree_ && isPassedOverByName(withoutGzip(member.path))) {
      passOver(source, "mail of another format");
      return true;
    }
    try {
      ExpansionLimit limit(member.packedBytes, &container.limit());
      auto stream = container.open();
      BytesView head = stream->next();
      if (looksLikeGzip(head) && isTree_) {
        stream = gunzip(std::move(stream), head, limit);
        head = stream->next();
      }
      source.path = withoutGzip(source.path);
      return readFile(source, head, *stream);
    } catch (const ContainerError& error) {
      const auto* const expands = std::get_if<ContainerError::Expands>(&error.reason());
      if (!isTree_ || (expands != nullptr && expands->wholeContainer)) throw;
      anyTaken_ = true;
      report(source.originPath, error.message().text());
      return true;
    }
  }

  bool readFile(const Source& source, BytesView head, InputStream& stream) {
    const std::string_view name = nameOf(source.path);
    if (looksLikeMbox(head) || lowercaseExtension(name) == "mbox" || name == "mbox") {
      anyTaken_ = true;
      return ContainerMbox(source.originPath, folderOf(source.path, true))
          .read(head, stream, body_, unreadable_);
    }
    const bool numbered = isNumber(name) && looksLikeMail(head);  // as MH has them
    if (isTree_ && !isMessageName(name) && !numbered) return true;
    if (const std::string_view format = otherFormat(head); !format.empty()) {
      passOver(source, format);
      return true;
    }
    anyTaken_ = true;
    Bytes raw;
    for (BytesView piece = head; !piece.empty(); piece = stream.next()) {
      if (piece.size() > kMaxMessageBytes - raw.size()) {
        report(source.originPath, "too large for a message");
        return true;
      }
      raw += piece;
    }
    SourceMessage message;
    message.raw = std::move(raw);
    message.folderPath = folderOf(source.path, false);
    message.sourceIdentifier = nameOf(source.originPath);
    message.originPath = source.originPath;
    return body_(std::move(message));
  }

  /// The folder the readers of unpacked mail would give.
  std::string folderOf(std::string_view path, bool isMailbox) const {
    const std::string ownFolder(withoutMboxExtension(withoutExtension(
        withoutExtension(withoutGzip(ownName(file_)), {"zip"}), EMLReader::messageExtensions())));
    if (!isTree_) return ownFolder;
    const std::string_view parent = parentOf(path);
    if (isMailbox && !isMessageName(nameOf(path))) {
      const std::string folder = MboxFolderReader::folderName(parent, nameOf(path));
      return folder.empty() ? ownFolder : folder;  // a member without a name
    }
    return parent.empty() ? ownFolder : std::string(parent);
  }

  /// Mail in files of a kind that is not read from within a container.
  static bool isPassedOverByName(std::string_view path) {
    const std::string_view name = nameOf(path);
    return isOtherStoreName(name) || lowercaseExtension(name) == "zip" ||
           (MaildirReader::isMessageFolderName(nameOf(parentOf(path))) && !isMessageName(name));
  }

  void passOver(const Source& source, std::string_view format) {
    if (isTree_) {
      passedOver_.add(source.path);
      anyTaken_ = true;  // the report of these says enough
      return;
    }
    throw ImportError(ImportError::Unreadable{source.originPath + ": " + std::string(format) +
                                              " is in it, unpack it and import what comes out"});
  }

  void report(const std::string& path, const std::string& reason) const {
    if (unreadable_) unreadable_(path + ": " + reason);
  }

  const fs::path& file_;
  const MessageImporter::Body& body_;
  const MessageImporter::Unreadable& unreadable_;
  bool isTree_ = false;
  bool anyTaken_ = false;
  PassedOver passedOver_;
};

}  // namespace

ContainerReader::ContainerReader(fs::path file) : file_(std::move(file)) {}

std::string ContainerReader::displayName() const { return ownName(file_); }

void ContainerReader::forEachMessage(const Body& body, const Unreadable& unreadable) {
  Run(file_, body, unreadable).readAll();
}

}  // namespace ambervane
