#ifndef AMBERVANE_SEARCH_TAGS_H_
#define AMBERVANE_SEARCH_TAGS_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "store/catalog_annotations.h"
#include "store/mail_archive.h"
#include "store/tag_rule.h"

namespace ambervane {

// Changes of tags themselves and of the rules that apply them; store/tagging.h tags messages. `by`
// is who did it. All throw ArchiveError (ReadOnly), SQLiteError, FileError; nothing has changed
// then.

/// Gives a tag another name and colour. Throws TagError for a name of blanks.
void renameTag(MailArchive& archive, const ArchiveTag& tag, std::string_view name,
               const std::string& colour, const std::string& by);
/// Removes a tag from all messages and for good; returns how many carried it.
std::int64_t deleteTag(MailArchive& archive, const ArchiveTag& tag, const std::string& by);

/// Saves a rule, or replaces the one of its identifier. Throws TagError when its tag has no name.
void saveTagRule(MailArchive& archive, const TagRule& rule, const std::string& by);
/// False when there is no such rule.
bool deleteTagRule(MailArchive& archive, const std::string& id, const std::string& by);
/// Tags every message a rule matches, erased ones left out; returns how many it matched.
std::int64_t applyTagRuleToExisting(
    MailArchive& archive, const TagRule& rule, const std::string& by,
    const std::function<void(std::int64_t done, std::int64_t total)>& progress);

}  // namespace ambervane

#endif  // AMBERVANE_SEARCH_TAGS_H_
