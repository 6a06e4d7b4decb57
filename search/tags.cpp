#include "search/tags.h"

#include <algorithm>
#include <vector>

#include "query/filter_compiler.h"
#include "search/search_archive.h"
#include "store/query_context.h"
#include "store/recorded_change.h"
#include "store/tagging.h"

namespace ambervane {
namespace {

constexpr std::size_t kMessagesBetweenReports = 500;

}  // namespace

void renameTag(MailArchive& archive, const ArchiveTag& tag, std::string_view name,
               const std::string& colour, const std::string& by) {
  RecordedChange change(archive);
  const std::string to = requiredTagName(name);
  CatalogAnnotations(archive.catalog()).renameTag(tag.id, to, colour);
  archive.journal().append(
      AuditAction::policyChanged, "tag",
      {{"action", "renamed"}, {"from", tag.name}, {"to", to}, {"colour", colour}}, by);
  change.finish();
}

std::int64_t deleteTag(MailArchive& archive, const ArchiveTag& tag, const std::string& by) {
  RecordedChange change(archive);
  const std::int64_t messages = CatalogAnnotations(archive.catalog()).deleteTag(tag.id);
  archive.journal().append(AuditAction::tagDeleted, std::nullopt,
                           {{"tag", tag.name}, {"messages", std::to_string(messages)}, {"by", by}},
                           by);
  change.finish();
  return messages;
}

void saveTagRule(MailArchive& archive, const TagRule& rule, const std::string& by) {
  RecordedChange change(archive);
  TagRule saved = rule;
  saved.tag = requiredTagName(rule.tag);
  CatalogAnnotations(archive.catalog()).saveTagRule(saved);
  archive.tagRules().forget();
  archive.journal().append(AuditAction::policyChanged, "tag-rule",
                           {{"action", "saved"}, {"definition", tagRuleJson(saved)}, {"by", by}},
                           by);
  change.finish();
}

bool deleteTagRule(MailArchive& archive, const std::string& id, const std::string& by) {
  RecordedChange change(archive);
  CatalogAnnotations annotations(archive.catalog());
  const auto rules = annotations.tagRules();
  const auto rule = std::find_if(rules.begin(), rules.end(),
                                 [&id](const TagRule& each) { return each.id == id; });
  if (!annotations.deleteTagRule(id)) return false;
  archive.tagRules().forget();
  archive.journal().append(
      AuditAction::policyChanged, "tag-rule",
      {{"action", "deleted"}, {"rule", rule == rules.end() ? "" : rule->name}, {"id", id}}, by);
  change.finish();
  return true;
}

std::int64_t applyTagRuleToExisting(
    MailArchive& archive, const TagRule& rule, const std::string& by,
    const std::function<void(std::int64_t done, std::int64_t total)>& progress) {
  RecordedChange change(archive);
  std::vector<std::int64_t> ids;
  // A filter with nothing to ask would select everything.
  if (FilterCompiler::compile(rule.filter, queryContext(archive))) {
    SearchQuery query;
    query.filter = rule.filter;
    ids = selectedMessageIDs(archive, query);
  }
  const auto total = static_cast<std::int64_t>(ids.size());
  for (std::size_t done = 0; done < ids.size();) {
    const std::size_t end = std::min(done + kMessagesBetweenReports, ids.size());
    const auto at = [&ids](std::size_t i) { return ids.begin() + static_cast<std::ptrdiff_t>(i); };
    applyTag(archive, rule.tag, rule.colour, {at(done), at(end)}, by);
    done = end;
    if (progress) progress(static_cast<std::int64_t>(done), total);
  }
  archive.journal().append(AuditAction::policyChanged, "tag-rule",
                           {{"action", "applied to existing"}, {"tag", rule.tag}, {"by", by}}, by);
  change.finish();
  return total;
}

}  // namespace ambervane
