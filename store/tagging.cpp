#include "store/tagging.h"

#include <optional>

#include "base/text.h"
#include "query/filter_compiler.h"
#include "store/query_context.h"
#include "store/recorded_change.h"

namespace ambervane {
namespace {

/// Asks which rules match one message that is in the catalog.
class RuleMatcher {
 public:
  RuleMatcher(MailArchive& archive, std::int64_t messageID, const IndexedText* text)
      : archive_(archive), messageID_(messageID), text_(text) {}

  bool matches(const TagRule& rule) {
    auto filter = FilterCompiler::compile(rule.filter, queryContext(archive_));
    if (!filter) return false;
    askOfText(filter->sql);
    QueryValues values = {messageID_};
    values.insert(values.end(), filter->params.begin(), filter->params.end());
    const std::string sql =
        "SELECT 1 FROM message m WHERE m.id = ? AND (" + filter->sql + ") LIMIT 1";
    return archive_.catalog().database().scalar(sql, bindingsOf(values)).has_value();
  }

 private:
  /// Full text is found for the whole archive and then compared with the message, which would make
  /// each message that comes in dearer than the one before. Names of tables stand in the statement
  /// as we wrote them; what users write is in its parameters.
  void askOfText(std::string& sql) {
    constexpr std::string_view kIndex = "message_fts";
    if (text_ == nullptr || sql.find(kIndex) == std::string::npos) return;
    if (!isStaged_) archive_.catalog().stageText(messageID_, *text_);
    isStaged_ = true;
    for (auto at = sql.find(kIndex); at != std::string::npos; at = sql.find(kIndex, at)) {
      sql.replace(at, kIndex.size(), "staged_fts");
    }
  }

  MailArchive& archive_;
  const std::int64_t messageID_;
  const IndexedText* text_;
  bool isStaged_ = false;
};

ArchiveTag tagMessages(MailArchive& archive, std::string_view name, const std::string& colour,
                       const std::vector<std::int64_t>& messageIDs, const std::string& by) {
  const std::string wanted = requiredTagName(name);
  CatalogAnnotations annotations(archive.catalog());
  const auto before = annotations.tag(wanted);
  annotations.upsertTag(wanted, colour, archive.now());
  ArchiveTag tag = annotations.tag(wanted).value();
  bool isRecorded = false;
  for (const std::int64_t id : messageIDs) {
    isRecorded = tagMessage(archive, tag, id, by) || isRecorded;
  }
  if (before && before->colour != colour && !isRecorded) {
    // A new colour alone must survive a rebuild too.
    archive.journal().append(
        AuditAction::policyChanged, "tag",
        {{"action", "renamed"}, {"from", tag.name}, {"to", tag.name}, {"colour", colour}}, by);
  }
  return tag;
}

}  // namespace

LocalizedMessage TagError::message() const {
  switch (reason_) {
    case Reason::nameRequired:
      break;
  }
  return {"A tag needs a name.", {}};
}

std::string requiredTagName(std::string_view name) {
  std::string trimmed = repairedUtf8(trim(name));
  if (trimmed.empty()) throw TagError(TagError::Reason::nameRequired);
  return trimmed;
}

ArchiveTag applyTag(MailArchive& archive, std::string_view name, const std::string& colour,
                    const std::vector<std::int64_t>& messageIDs, const std::string& by) {
  RecordedChange change(archive);
  ArchiveTag tag = tagMessages(archive, name, colour, messageIDs, by);
  tag.messageCount = CatalogAnnotations(archive.catalog()).taggedMessages(tag.id);
  change.finish();
  return tag;
}

bool tagMessage(MailArchive& archive, const ArchiveTag& tag, std::int64_t messageID,
                const std::string& by) {
  const auto digest = archive.catalog().messageDigest(messageID);
  CatalogAnnotations annotations(archive.catalog());
  if (!digest || !annotations.linkTag(messageID, tag.id, archive.now(), by)) return false;
  archive.journal().append(AuditAction::tagApplied, *digest,
                           {{"tag", tag.name},
                            {"colour", tag.colour},
                            {"message_id", std::to_string(messageID)},
                            {"by", by}},
                           by);
  return true;
}

std::int64_t removeTag(MailArchive& archive, const ArchiveTag& tag,
                       const std::vector<std::int64_t>& messageIDs, const std::string& by) {
  RecordedChange change(archive);
  CatalogAnnotations annotations(archive.catalog());
  std::int64_t removed = 0;
  for (const std::int64_t id : messageIDs) {
    if (!annotations.unlinkTag(id, tag.id)) continue;
    archive.journal().append(AuditAction::tagRemoved, archive.catalog().messageDigest(id),
                             {{"tag", tag.name}, {"by", by}}, by);
    ++removed;
  }
  change.finish();
  return removed;
}

TagRuleCache::Rules TagRuleCache::rules(Catalog& catalog) {
  const std::lock_guard guard(mutex_);
  if (!rules_) {
    auto rules = CatalogAnnotations(catalog).tagRules();
    std::erase_if(rules, [](const TagRule& rule) { return !rule.enabled; });
    rules_ = std::make_shared<const std::vector<TagRule>>(std::move(rules));
  }
  return rules_;
}

void TagRuleCache::forget() {
  const std::lock_guard guard(mutex_);
  rules_.reset();
}

TagRuleCache::Rules activeTagRules(MailArchive& archive) {
  return archive.tagRules().rules(archive.catalog());
}

std::vector<std::string> applyTagRules(MailArchive& archive, std::int64_t messageID,
                                       const std::vector<TagRule>& rules, const std::string& by,
                                       const IndexedText* text) {
  RuleMatcher matcher(archive, messageID, text);
  std::vector<std::string> applied;
  RecordedChange change(archive);
  for (const TagRule& rule : rules) {
    try {
      if (!matcher.matches(rule)) continue;
      applied.push_back(tagMessages(archive, rule.tag, rule.colour, {messageID}, by).name);
    } catch (const TagError&) {
      // A rule that cannot tag does not keep the message out.
    } catch (const SQLiteError& error) {
      if (error.isMediumFailure()) throw;
    }
  }
  change.finish();
  return applied;
}

}  // namespace ambervane
