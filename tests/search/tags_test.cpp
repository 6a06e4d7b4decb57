#include "search/tags.h"

#include <gtest/gtest.h>

#include "search/notes.h"
#include "store/archive_error.h"
#include "store/restore_annotations.h"
#include "store/tagging.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

TagRule subjectRule(const std::string& word, const std::string& tag) {
  return {.id = "r-" + tag,
          .name = "Rule",
          .filter = FilterNode::rule(FilterField::subject, FilterOperator::contains, word),
          .tag = tag,
          .colour = "green",
          .createdAt = kTestTime,
          .updatedAt = kTestTime};
}

TEST(Notes, areKeptWithAllTheirTexts) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  CatalogAnnotations annotations(archive->catalog());
  EXPECT_THROW(addNote(*archive, 1, " \n", "anna"), NoteError);
  EXPECT_THROW(addNote(*archive, 9, "text", "anna"), ArchiveError);
  const MessageNote note = addNote(*archive, 1, "eins", "anna");
  EXPECT_THROW(editNote(*archive, note, ""), NoteError);
  EXPECT_TRUE(editNote(*archive, note, "zwei"));
  EXPECT_EQ(annotations.note(note.id)->body, "zwei");
  EXPECT_TRUE(removeNote(*archive, note));
  EXPECT_FALSE(removeNote(*archive, note));
  EXPECT_FALSE(editNote(*archive, note, "drei"));
  const auto edited = archive.entries(AuditAction::noteEdited).front();
  EXPECT_EQ(edited.subject, archive->catalog().messageDigest(1));
  EXPECT_EQ(edited.details.at("note") + "/" + edited.details.at("was"), "zwei/eins");
  EXPECT_EQ(archive.entries(AuditAction::noteRemoved).front().details.at("was"), "zwei");
  archive.reopen(OpenMode::readOnly);
  EXPECT_THROW(addNote(*archive, 1, "text", "anna"), ArchiveError);
}

TEST(Tags, rulesApplyToWhatComesAndToWhatIsThere) {
  TestArchive archive;
  archive.ingest({plainMail(1, "Mahnung"), plainMail(2)});
  const TagRule rule = subjectRule("Mahnung", "M");
  saveTagRule(*archive, rule, "anna");
  archive.ingest({plainMail(3, "Mahnung"), plainMail(4)});
  CatalogAnnotations annotations(archive->catalog());
  EXPECT_EQ(annotations.taggedMessages(annotations.tag("M")->id), 1);
  std::int64_t reported = 0;
  EXPECT_EQ(applyTagRuleToExisting(*archive, rule, "anna",
                                   [&](std::int64_t done, std::int64_t) { reported = done; }),
            2);
  EXPECT_EQ(reported, 2);
  EXPECT_EQ(annotations.taggedMessages(annotations.tag("M")->id), 2);

  TagRule incomplete = subjectRule(" ", "Alles");
  EXPECT_EQ(applyTagRuleToExisting(*archive, incomplete, "anna", {}), 0);
  EXPECT_FALSE(annotations.tag("Alles"));
  incomplete.tag = " ";
  EXPECT_THROW(saveTagRule(*archive, incomplete, "anna"), TagError);

  EXPECT_TRUE(deleteTagRule(*archive, rule.id, "anna"));
  EXPECT_FALSE(deleteTagRule(*archive, rule.id, "anna"));
  archive.ingest({plainMail(5, "Mahnung")});
  EXPECT_EQ(annotations.taggedMessages(annotations.tag("M")->id), 2);
  std::vector<std::string> actions;
  for (const AuditEntry& entry : archive.entries(AuditAction::policyChanged)) {
    EXPECT_EQ(entry.subject, "tag-rule");
    actions.push_back(entry.details.at("action"));
  }
  EXPECT_EQ(actions, (std::vector<std::string>{"saved", "applied to existing",
                                               "applied to existing", "deleted"}));
}

/// What the operations journal is what the replay understands.
TEST(Tags, whatWasDoneCanBeReplayed) {
  TestArchive archive;
  archive.ingest({plainMail(1), plainMail(2)});
  CatalogAnnotations annotations(archive->catalog());
  const ArchiveTag one = applyTag(*archive, "Eins", "red", {1, 2}, "anna");
  renameTag(*archive, one, " Uno ", "violet", "anna");
  EXPECT_THROW(renameTag(*archive, one, "", "violet", "anna"), TagError);
  const ArchiveTag two = applyTag(*archive, "Zwei", "red", {1, 2}, "anna");
  EXPECT_EQ(deleteTag(*archive, two, "anna"), 2);
  EXPECT_EQ(archive.entries(AuditAction::tagDeleted).front().details.at("messages"), "2");
  removeTag(*archive, annotations.tag("uno").value(), {1}, "anna");
  addNote(*archive, 1, "bleibt", "anna");
  const MessageNote gone = addNote(*archive, 1, "geht", "anna");
  editNote(*archive, gone, "geht bald");
  removeNote(*archive, gone);
  saveTagRule(*archive, subjectRule("a", "A"), "anna");

  const auto rows = [](SQLiteDatabase& database) {
    std::string text;
    for (const char* sql :
         {"SELECT t.name || t.colour || m.sha256 || mt.added_by || mt.added_at AS x FROM tag t "
          "JOIN message_tag mt ON mt.tag_id = t.id JOIN message m ON m.id = mt.message_id ORDER BY "
          "x",
          "SELECT body || author || created_at || updated_at AS x FROM message_note ORDER BY x",
          "SELECT payload AS x FROM tag_rule ORDER BY x"}) {
      for (const Row& row : database.query(sql)) text += row.string("x") + "\n";
    }
    return text;
  };
  SQLiteDatabase& database = archive->catalog().database();
  const std::string before = rows(database);
  database.execute("DELETE FROM tag; DELETE FROM message_note; DELETE FROM tag_rule");
  restoreTags(archive->journal(), archive->catalog());
  restoreNotes(archive->journal(), archive->catalog());
  restoreTagRules(archive->journal(), archive->catalog());
  EXPECT_EQ(rows(database), before);
}

}  // namespace
}  // namespace ambervane
