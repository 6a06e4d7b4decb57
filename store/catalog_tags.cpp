// Tags, notes and tag rules in the catalog.

#include "base/json.h"
#include "store/catalog_annotations.h"

namespace ambervane {
namespace {

// Erased messages are counted apart, by an index that holds only them.
constexpr std::string_view kTagged =
    "(SELECT COUNT(*) FROM message_tag mt WHERE mt.tag_id = t.id) - (SELECT COUNT(*) FROM message "
    "m JOIN message_tag mt ON mt.message_id = m.id AND mt.tag_id = t.id WHERE m.erased = 1)";

ArchiveTag tagOf(const Row& row) {
  return {row.integer("id"), row.string("name"), row.string("colour"),
          row.date("created_at").value_or(Date{}), row.integer("messages")};
}

MessageNote noteOf(const Row& row) {
  return {row.integer("id"),
          row.integer("message_id"),
          row.string("body"),
          row.string("author"),
          row.date("created_at").value_or(Date{}),
          row.date("updated_at").value_or(Date{})};
}

}  // namespace

std::vector<ArchiveTag> CatalogAnnotations::tags() {
  std::vector<ArchiveTag> tags;
  const std::string sql = "SELECT t.*, " + std::string(kTagged) +
                          " AS messages FROM tag t ORDER BY t.name COLLATE NOCASE";
  for (const Row& row : db_.query(sql)) {
    tags.push_back(tagOf(row));
  }
  return tags;
}

std::optional<ArchiveTag> CatalogAnnotations::tag(std::string_view name) {
  const auto rows = db_.query("SELECT * FROM tag WHERE name = ? COLLATE NOCASE", {name});
  if (rows.empty()) return std::nullopt;
  return tagOf(rows.front());
}

std::int64_t CatalogAnnotations::taggedMessages(std::int64_t tagID) {
  return db_.count("SELECT " + std::string(kTagged) + " FROM tag t WHERE t.id = ?", {tagID});
}

std::int64_t CatalogAnnotations::upsertTag(const std::string& name, const std::string& colour,
                                           Date now) {
  db_.run(
      "INSERT INTO tag(name, colour, created_at) VALUES(?, ?, ?)\n"
      "    ON CONFLICT(name) DO UPDATE SET colour = excluded.colour",
      {name, colour, now});
  return db_.count("SELECT id FROM tag WHERE name = ? COLLATE NOCASE", {name});
}

bool CatalogAnnotations::linkTag(std::int64_t messageID, std::int64_t tagID, Date now,
                                 const std::string& by) {
  const bool added =
      db_.run(
          "INSERT OR IGNORE INTO message_tag(message_id, tag_id, added_at, added_by)\n"
          "    VALUES(?, ?, ?, ?)",
          {messageID, tagID, now, by}) > 0;
  if (added) catalog_.bumpMutationGeneration();
  return added;
}

bool CatalogAnnotations::unlinkTag(std::int64_t messageID, std::int64_t tagID) {
  const bool removed = db_.run("DELETE FROM message_tag WHERE message_id = ? AND tag_id = ?",
                               {messageID, tagID}) > 0;
  if (removed) catalog_.bumpMutationGeneration();
  return removed;
}

void CatalogAnnotations::renameTag(std::int64_t tagID, const std::string& name,
                                   const std::string& colour) {
  db_.run("UPDATE tag SET name = ?, colour = ? WHERE id = ?", {name, colour, tagID});
  catalog_.bumpMutationGeneration();
}

std::int64_t CatalogAnnotations::deleteTag(std::int64_t tagID) {
  const std::int64_t messages =
      db_.count("SELECT COUNT(*) FROM message_tag WHERE tag_id = ?", {tagID});
  db_.run("DELETE FROM message_tag WHERE tag_id = ?", {tagID});
  db_.run("DELETE FROM tag WHERE id = ?", {tagID});
  catalog_.bumpMutationGeneration();
  return messages;
}

std::vector<MessageNote> CatalogAnnotations::notes(std::int64_t messageID) {
  std::vector<MessageNote> notes;
  for (const Row& row :
       db_.query("SELECT * FROM message_note WHERE message_id = ? ORDER BY created_at, id",
                 {messageID})) {
    notes.push_back(noteOf(row));
  }
  return notes;
}

std::optional<MessageNote> CatalogAnnotations::note(std::int64_t id) {
  const auto rows = db_.query("SELECT * FROM message_note WHERE id = ?", {id});
  if (rows.empty()) return std::nullopt;
  return noteOf(rows.front());
}

std::int64_t CatalogAnnotations::addNote(std::int64_t messageID, const std::string& body,
                                         const std::string& author, Date now) {
  return insertNote({0, messageID, body, author, now, now});
}

std::int64_t CatalogAnnotations::insertNote(const MessageNote& note) {
  return db_.insert(
      "INSERT INTO message_note(message_id, body, author, created_at, updated_at) VALUES(?, ?, ?, "
      "?, ?)",
      {note.messageID, note.body, note.author, note.createdAt, note.updatedAt});
}

bool CatalogAnnotations::hasNote(const MessageNote& note) {
  return db_
      .scalar(
          "SELECT 1 FROM message_note WHERE message_id = ? AND author = ? AND created_at = ? AND "
          "body = ?",
          {note.messageID, note.author, note.createdAt, note.body})
      .has_value();
}

void CatalogAnnotations::updateNote(std::int64_t id, const std::string& body, Date now) {
  db_.run("UPDATE message_note SET body = ?, updated_at = ? WHERE id = ?", {body, now, id});
}

void CatalogAnnotations::deleteNote(std::int64_t id) {
  db_.run("DELETE FROM message_note WHERE id = ?", {id});
}

std::vector<TagRule> CatalogAnnotations::tagRules() {
  std::vector<TagRule> rules;
  for (const Row& row :
       db_.query("SELECT payload FROM tag_rule ORDER BY position ASC, name COLLATE NOCASE ASC")) {
    try {
      rules.push_back(tagRuleFromJson(row.string("payload")));
    } catch (const JsonError&) {
      // A rule of another version, or a damaged one: it cannot run, and the others can.
    }
  }
  return rules;
}

void CatalogAnnotations::saveTagRule(const TagRule& rule) {
  db_.run(
      "INSERT INTO tag_rule(id, name, payload, enabled, position, created_at, updated_at) "
      "VALUES(?, ?, ?, ?, ?, ?, ?) ON CONFLICT(id) DO UPDATE SET name = excluded.name, payload = "
      "excluded.payload, enabled = excluded.enabled, position = excluded.position, updated_at = "
      "excluded.updated_at",
      {rule.id, rule.name, tagRuleJson(rule), rule.enabled, rule.position, rule.createdAt,
       rule.updatedAt});
}

bool CatalogAnnotations::deleteTagRule(const std::string& id) {
  return db_.run("DELETE FROM tag_rule WHERE id = ?", {id}) > 0;
}

}  // namespace ambervane
