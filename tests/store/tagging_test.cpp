#include "store/tagging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/archive_error.h"
#include "store/restore_annotations.h"
#include "tests/support/file_faults.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TagRule ruleFor(FilterNode filter, const std::string& tag, std::int64_t position = 0) {
  return {.id = "rule-" + tag,
          .name = "Rule for " + tag,
          .filter = std::move(filter),
          .tag = tag,
          .colour = "green",
          .position = position,
          .createdAt = kTestTime,
          .updatedAt = kTestTime};
}

std::vector<std::string> tagsOf(MailArchive& archive, std::int64_t messageID) {
  std::vector<std::string> names;
  for (const Row& row : archive.catalog().database().query(
           "SELECT t.name FROM message_tag mt JOIN tag t ON t.id = mt.tag_id WHERE mt.message_id = "
           "? ORDER BY t.name",
           {messageID})) {
    names.push_back(row.string("name"));
  }
  return names;
}

TEST(Tagging, isJournalledOncePerMessageAndFoldsCase) {
  TestArchive archive;
  archive.ingest({plainMail(1), plainMail(2), plainMail(3)});
  EXPECT_EQ(applyTag(*archive, " Steuer ", "blue", {1, 2, 99}, "anna").messageCount, 2);
  const ArchiveTag again = applyTag(*archive, "STEUER", "red", {2, 3}, "bert");
  EXPECT_EQ(again.name, "Steuer");
  EXPECT_EQ(again.colour, "red");
  EXPECT_EQ(again.messageCount, 3);
  const auto entries = archive.entries(AuditAction::tagApplied);
  ASSERT_EQ(entries.size(), 3U);
  EXPECT_EQ(entries[2].subject, archive->catalog().messageDigest(3));
  EXPECT_EQ(entries[2].actor, "bert");
  EXPECT_THAT(entries[2].details,
              ElementsAre(testing::Pair("by", "bert"), testing::Pair("colour", "red"),
                          testing::Pair("message_id", "3"), testing::Pair("tag", "Steuer")));

  EXPECT_EQ(removeTag(*archive, again, {1, 1, 99}, "anna"), 1);
  EXPECT_EQ(archive.entries(AuditAction::tagRemoved).size(), 1U);
  archive->catalog().database().run("UPDATE message SET erased = 1 WHERE id = 2");
  EXPECT_EQ(CatalogAnnotations(archive->catalog()).tags().front().messageCount, 1);
  EXPECT_THAT(tagsOf(*archive, 2), ElementsAre("Steuer"));
  EXPECT_TRUE(archive->journal().verify().ok);
}

TEST(Tagging, refusals) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  EXPECT_THROW(applyTag(*archive, " \t", "blue", {1}, "anna"), TagError);
  {
    const FullDisk full(0);
    EXPECT_THROW(applyTag(*archive, "a", "blue", {1}, "anna"), FileError);
  }
  EXPECT_THAT(CatalogAnnotations(archive->catalog()).tags(), IsEmpty());
  archive.reopen(OpenMode::readOnly);
  EXPECT_THROW(applyTag(*archive, "a", "blue", {1}, "anna"), ArchiveError);
}

/// A flush that fails leaves entries of a change that is not in the catalog; the journal says so.
TEST(Tagging, aChangeThatIsNotKeptIsCorrectedInTheJournal) {
  TestArchive archive;
  archive.ingest({plainMail(1)});
  {
    const FailingSync failing;
    EXPECT_THROW(applyTag(*archive, "a", "blue", {1}, "anna"), FileError);
  }
  EXPECT_THAT(tagsOf(*archive, 1), IsEmpty());
  EXPECT_EQ(archive.entries(AuditAction::integrityFailed).size(), 1U);
  applyTag(*archive, "a", "blue", {1}, "anna");
  EXPECT_THAT(tagsOf(*archive, 1), ElementsAre("a"));
}

TEST(TagRules, tagWhatComesIn) {
  TestArchive archive;
  CatalogAnnotations annotations(archive->catalog());
  const auto contains = [](FilterField field, const std::string& value) {
    return FilterNode::rule(field, FilterOperator::contains, value);
  };
  annotations.saveTagRule(ruleFor(contains(FilterField::subject, "Mahnung"), "Mahnwesen", 2));
  annotations.saveTagRule(ruleFor(contains(FilterField::anyText, "unterwegs"), "Text", 1));
  annotations.saveTagRule(ruleFor(contains(FilterField::folder, "Archiv"), "Ort"));
  annotations.saveTagRule(ruleFor(contains(FilterField::tag, "Text"), "Zweite", 3));
  annotations.saveTagRule(ruleFor(
      FilterNode::group(FilterMatch::all,
                        {contains(FilterField::subject, "  "),
                         FilterNode::rule(FilterField::size, FilterOperator::greaterThan, "much")}),
      "Unvollständig"));
  TagRule off = ruleFor(contains(FilterField::subject, "e"), "Aus");
  off.enabled = false;
  annotations.saveTagRule(off);
  annotations.saveTagRule(ruleFor(contains(FilterField::subject, "e"), " "));
  archive->catalog().database().run(
      "INSERT INTO tag_rule(id, name, payload, created_at, updated_at) VALUES('x', 'x', '{', 0, "
      "0)");

  archive.ingest({plainMail(1, "Mahnung"), plainMail(2, "Mahnung", "Kein Wort davon.\r\n")});
  archive.ingest({plainMail(3)}, "Archiv");
  EXPECT_THAT(tagsOf(*archive, 1), ElementsAre("Mahnwesen", "Text", "Zweite"));
  EXPECT_THAT(tagsOf(*archive, 2), ElementsAre("Mahnwesen"));
  EXPECT_THAT(tagsOf(*archive, 3), ElementsAre("Ort", "Text", "Zweite"));
  EXPECT_EQ(archive.entries(AuditAction::tagApplied).front().details.at("by"), "rule");
  archive.ingest({plainMail(1, "Mahnung")});
  EXPECT_EQ(archive.entries(AuditAction::tagApplied).size(), 7U);
}

TEST(TagRules, survivesJson) {
  const TagRule rule = ruleFor(
      FilterNode::rule(FilterField::from, FilterOperator::beginsWith, "\"a\"\\ä\n"), "Tag ✓", -3);
  EXPECT_EQ(tagRuleFromJson(tagRuleJson(rule)), rule);
  const TagRule sparse = tagRuleFromJson(
      R"({"id":"1","name":"n","tag":"t","filter":{"rule":{"_0":{"id":"2","field":"from",)"
      R"("op":"contains","value":"x"}}},"createdAt":"2024-01-01T00:00:00Z",)"
      R"("updatedAt":"2024-01-01T00:00:00Z"})");
  EXPECT_TRUE(sparse.enabled);
  EXPECT_EQ(sparse.colour, "grey");
}

/// Everything the keepers of an archive can add, changed and taken back again, then a catalog that
/// knows the same messages and nothing else.
TEST(RestoreAnnotations, bringsBackWhatStood) {
  TestArchive archive;
  archive.ingest({plainMail(1), plainMail(2)});
  AuditJournal& journal = archive->journal();
  const auto digest = [&](std::int64_t id) { return archive->catalog().messageDigest(id); };
  applyTag(*archive, "Bleibt", "blue", {1, 2}, "anna");
  const ArchiveTag gone = applyTag(*archive, "Weg", "red", {1}, "anna");
  removeTag(*archive, applyTag(*archive, "bleibt", "violet", {}, "bert"), {2}, "bert");
  journal.append(AuditAction::tagDeleted, std::nullopt, {{"tag", gone.name}});
  journal.append(AuditAction::tagApplied, digest(2), {{"tag", "Alt"}}, "carl");
  journal.append(AuditAction::tagApplied, "not a message", {{"tag", "Alt"}, {"colour", "red"}});
  journal.append(AuditAction::policyChanged, "tag",
                 {{"action", "renamed"}, {"from", "alt"}, {"to", "Neu"}, {"colour", "green"}});
  journal.append(AuditAction::noteAdded, digest(1), {{"author", "anna"}, {"note", "eins"}});
  journal.append(AuditAction::noteAdded, digest(1), {{"note", "zwei"}});
  journal.append(AuditAction::noteEdited, digest(1), {{"note", "eins b"}, {"was", "eins"}});
  journal.append(AuditAction::noteAdded, digest(2), {{"author", "anna"}, {"note", "weg"}});
  journal.append(AuditAction::noteRemoved, digest(2), {{"note", "weg"}, {"was", "weg"}});
  journal.append(AuditAction::noteAdded, "not a message", {{"note", "verwaist"}});
  const TagRule rule =
      ruleFor(FilterNode::rule(FilterField::from, FilterOperator::contains, "a"), "R");
  for (const char* action : {"saved", "applied to existing"}) {
    journal.append(AuditAction::policyChanged, "tag-rule",
                   {{"action", action}, {"definition", tagRuleJson(rule)}});
  }
  journal.append(AuditAction::policyChanged, "tag-rule",
                 {{"action", "saved"}, {"definition", "{damaged"}});
  SmartFolder folder;
  folder.id = "f1";
  folder.name = "F";
  folder.filter = rule.filter;
  journal.append(AuditAction::smartFolderSaved, "f1", {{"definition", smartFolderJson(folder)}});
  folder.id = "f2";
  journal.append(AuditAction::smartFolderSaved, "f2", {{"definition", smartFolderJson(folder)}});
  journal.append(AuditAction::smartFolderDeleted, "f1");

  const ScratchFolder scratch;
  Catalog catalog(scratch / "catalog.sqlite", [] { return kTestTime; });
  // In another order, so that row numbers do not carry over.
  catalog.reserveMessage(*digest(2));
  const std::int64_t first = catalog.reserveMessage(*digest(1));
  EXPECT_EQ(restoreTags(journal, catalog), 2);
  EXPECT_EQ(restoreNotes(journal, catalog), 2);
  EXPECT_EQ(restoreTagRules(journal, catalog), 1);
  EXPECT_EQ(restoreSmartFolders(journal, catalog), 1);

  CatalogAnnotations restored(catalog);
  const auto tags = restored.tags();
  ASSERT_EQ(tags.size(), 2U);
  EXPECT_EQ(tags[0].name + " " + tags[0].colour, "Bleibt violet");
  EXPECT_EQ(tags[1].name + " " + tags[1].colour, "Neu green");
  EXPECT_EQ(catalog.database().count("SELECT COUNT(*) FROM message_tag mt JOIN tag t ON t.id = "
                                     "mt.tag_id WHERE t.name = 'Neu' AND added_by = 'carl' AND "
                                     "message_id = 1"),
            1);
  const auto notes = restored.notes(first);
  ASSERT_EQ(notes.size(), 2U);
  EXPECT_EQ(notes[0].body + "/" + notes[0].author, "eins b/anna");
  EXPECT_EQ(notes[1].body + "/" + notes[1].author, "zwei/unknown");
  EXPECT_EQ(restored.tagRules().front(), rule);
  EXPECT_EQ(restored.smartFolders().front(), folder);
}

}  // namespace
}  // namespace ambervane
