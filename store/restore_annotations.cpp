#include "store/restore_annotations.h"

#include <functional>
#include <string>

#include "base/json.h"
#include "store/catalog_annotations.h"
#include "store/unkept_changes.h"

namespace ambervane {
namespace {

/// The colour of a tag whose own is not known.
constexpr const char* kUnknownColour = "grey";

std::string detail(const AuditEntry& entry, const std::string& key, std::string otherwise = {}) {
  const auto found = entry.details.find(key);
  return found == entry.details.end() ? std::move(otherwise) : found->second;
}

/// A note that came with other mail was written before its entry was.
Date date(const AuditEntry& entry, const std::string& key) {
  const std::string text = detail(entry, key);
  if (text.empty()) return entry.timestamp;
  try {
    return Date{decodeJson(parseJson(text, key), key,
                           [](const auto& v) { return v.template get<double>(); })};
  } catch (const JsonError&) {
    return entry.timestamp;
  }
}

bool isPolicyChange(const AuditEntry& entry, std::string_view subject, std::string_view action) {
  return entry.action == AuditAction::policyChanged && entry.subject == subject &&
         detail(entry, "action") == action;
}

/// Hands every entry to `take` inside one transaction, then counts the rows of `table`.
std::int64_t replay(const AuditJournal& journal, Catalog& into, const std::string& table,
                    const std::function<void(const AuditEntry&)>& take) {
  into.atomically([&] { forEachKeptEntry(journal, take); });
  return into.database().count("SELECT COUNT(*) FROM " + table);
}

/// Runs `save`, passing over a definition that cannot be read.
void saveIfReadable(const std::function<void()>& save) {
  try {
    save();
  } catch (const JsonError&) {
    // Written by another version; the others still come back.
  }
}

class TagReplay {
 public:
  explicit TagReplay(Catalog& into) : catalog_(into), annotations_(into) {}

  void take(const AuditEntry& entry) {
    if (entry.action == AuditAction::tagApplied) {
      apply(entry);
    } else if (entry.action == AuditAction::tagRemoved) {
      const auto tag = annotations_.tag(detail(entry, "tag"));
      const auto message = catalog_.messageID(entry.subject.value_or(""));
      if (tag && message) annotations_.unlinkTag(*message, tag->id);
    } else if (entry.action == AuditAction::tagDeleted) {
      if (const auto tag = annotations_.tag(detail(entry, "tag"))) annotations_.deleteTag(tag->id);
    } else if (isPolicyChange(entry, "tag", "renamed")) {
      rename(entry);
    }
  }

 private:
  void apply(const AuditEntry& entry) {
    const std::string name = detail(entry, "tag");
    if (name.empty()) return;
    const auto known = annotations_.tag(name);
    const std::string colour = detail(entry, "colour", known ? known->colour : kUnknownColour);
    const std::int64_t tag = known && known->colour == colour
                                 ? known->id
                                 : annotations_.upsertTag(name, colour, entry.timestamp);
    if (const auto message = catalog_.messageID(entry.subject.value_or(""))) {
      annotations_.linkTag(*message, tag, entry.timestamp, entry.actor);
    }
  }

  void rename(const AuditEntry& entry) {
    const auto tag = annotations_.tag(detail(entry, "from"));
    const std::string name = detail(entry, "to");
    if (!tag || name.empty()) return;
    // Two tags cannot have one name; the journal of a sound archive never asks for it.
    const auto taken = annotations_.tag(name);
    if (taken && taken->id != tag->id) return;
    annotations_.renameTag(tag->id, name, detail(entry, "colour", tag->colour));
  }

  Catalog& catalog_;
  CatalogAnnotations annotations_;
};

class NoteReplay {
 public:
  explicit NoteReplay(Catalog& into) : catalog_(into), annotations_(into) {}

  void take(const AuditEntry& entry) {
    const bool isAdded = entry.action == AuditAction::noteAdded;
    const bool isEdited = entry.action == AuditAction::noteEdited;
    if (!isAdded && !isEdited && entry.action != AuditAction::noteRemoved) return;
    const auto message = catalog_.messageID(entry.subject.value_or(""));
    if (!message) return;
    if (isAdded) {
      annotations_.insertNote({0, *message, detail(entry, "note"),
                               detail(entry, "author", "unknown"), date(entry, "created_at"),
                               date(entry, "updated_at")});
      return;
    }
    // The journal knows a note by its message and its text.
    const std::string was = detail(entry, "was", detail(entry, "note"));
    for (const MessageNote& note : annotations_.notes(*message)) {
      if (note.body != was) continue;
      if (isEdited) {
        annotations_.updateNote(note.id, detail(entry, "note"), entry.timestamp);
      } else {
        annotations_.deleteNote(note.id);
      }
      return;
    }
  }

 private:
  Catalog& catalog_;
  CatalogAnnotations annotations_;
};

}  // namespace

std::int64_t restoreSmartFolders(const AuditJournal& journal, Catalog& into) {
  CatalogAnnotations annotations(into);
  return replay(journal, into, "smart_folder", [&](const AuditEntry& entry) {
    if (entry.action == AuditAction::smartFolderSaved) {
      saveIfReadable(
          [&] { annotations.saveSmartFolder(smartFolderFromJson(detail(entry, "definition"))); });
    } else if (entry.action == AuditAction::smartFolderDeleted) {
      annotations.deleteSmartFolder(entry.subject.value_or(""));
    }
  });
}

std::int64_t restoreTagRules(const AuditJournal& journal, Catalog& into) {
  CatalogAnnotations annotations(into);
  return replay(journal, into, "tag_rule", [&](const AuditEntry& entry) {
    if (isPolicyChange(entry, "tag-rule", "saved")) {
      saveIfReadable(
          [&] { annotations.saveTagRule(tagRuleFromJson(detail(entry, "definition"))); });
    } else if (isPolicyChange(entry, "tag-rule", "deleted")) {
      annotations.deleteTagRule(detail(entry, "id"));
    }
  });
}

std::int64_t restoreNotes(const AuditJournal& journal, Catalog& into) {
  NoteReplay notes(into);
  return replay(journal, into, "message_note",
                [&notes](const AuditEntry& entry) { notes.take(entry); });
}

std::int64_t restoreTags(const AuditJournal& journal, Catalog& into) {
  TagReplay tags(into);
  return replay(journal, into, "message_tag",
                [&tags](const AuditEntry& entry) { tags.take(entry); });
}

}  // namespace ambervane
