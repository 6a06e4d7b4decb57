#ifndef AMBERVANE_STORE_CATALOG_ANNOTATIONS_H_
#define AMBERVANE_STORE_CATALOG_ANNOTATIONS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/date.h"
#include "query/smart_folder.h"
#include "store/catalog.h"
#include "store/tag_rule.h"

namespace ambervane {

/// A tag.
struct ArchiveTag {
  std::int64_t id = 0;
  std::string name, colour;
  Date createdAt;
  std::int64_t messageCount = 0;  ///< without erased messages
};

/// What somebody wrote about a message.
struct MessageNote {
  std::int64_t id = 0;
  std::int64_t messageID = 0;
  std::string body, author;
  Date createdAt, updatedAt;
};

/// What the keepers of an archive add to its catalog: tags, notes, tag rules and smart folders.
/// Only the tables: the functions in store/tagging.h and in search/ keep the journal as well. What
/// alters what a filter finds raises the mutation generation. Failures are SQLiteError.
class CatalogAnnotations {
 public:
  /// `catalog` must outlive it.
  explicit CatalogAnnotations(Catalog& catalog) noexcept
      : catalog_(catalog), db_(catalog.database()) {}

  /// By name.
  std::vector<ArchiveTag> tags();
  /// Names that differ only in the case of ASCII letters are the same. Its messages are not
  /// counted.
  std::optional<ArchiveTag> tag(std::string_view name);
  std::int64_t taggedMessages(std::int64_t tagID);
  /// Makes a tag, or gives the one there is another colour; returns its identifier.
  std::int64_t upsertTag(const std::string& name, const std::string& colour, Date now);
  /// True when the message did not carry the tag before.
  bool linkTag(std::int64_t messageID, std::int64_t tagID, Date now, const std::string& by);
  /// True when the message carried the tag.
  bool unlinkTag(std::int64_t messageID, std::int64_t tagID);
  void renameTag(std::int64_t tagID, const std::string& name, const std::string& colour);
  /// Returns how many messages carried it, erased ones included.
  std::int64_t deleteTag(std::int64_t tagID);

  /// Of one message, oldest first.
  std::vector<MessageNote> notes(std::int64_t messageID);
  std::optional<MessageNote> note(std::int64_t id);
  std::int64_t addNote(std::int64_t messageID, const std::string& body, const std::string& author,
                       Date now);
  /// Puts a note in with its own dates; its `id` is not looked at.
  std::int64_t insertNote(const MessageNote& note);
  /// Whether its message has a note of this author, time of writing and text.
  bool hasNote(const MessageNote& note);
  void updateNote(std::int64_t id, const std::string& body, Date now);
  void deleteNote(std::int64_t id);

  /// In the order in which they run. Rows that cannot be read are left out, here and below.
  std::vector<TagRule> tagRules();
  void saveTagRule(const TagRule& rule);
  /// False when there is none of that identifier.
  bool deleteTagRule(const std::string& id);

  /// By position and name.
  std::vector<SmartFolder> smartFolders();
  void saveSmartFolder(const SmartFolder& folder);
  bool deleteSmartFolder(const std::string& id);
  /// The count stored for the content as `fingerprint` names it.
  std::optional<SmartFolderCount> cachedSmartFolderCount(const std::string& id,
                                                         const std::string& fingerprint);
  /// The count stored last, stale when it is not of `fingerprint`.
  std::optional<SmartFolderCount> lastSmartFolderCount(const std::string& id,
                                                       const std::string& fingerprint);
  void storeSmartFolderCount(const std::string& id, const SmartFolderCount& count,
                             const std::string& fingerprint);
  void invalidateSmartFolderCount(const std::string& id);

 private:
  Catalog& catalog_;
  SQLiteDatabase& db_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_CATALOG_ANNOTATIONS_H_
