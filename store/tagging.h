#ifndef AMBERVANE_STORE_TAGGING_H_
#define AMBERVANE_STORE_TAGGING_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/localized_message.h"
#include "store/catalog_annotations.h"
#include "store/mail_archive.h"

namespace ambervane {

class TagError final : public TranslatableError {
 public:
  enum class Reason { nameRequired };
  explicit TagError(Reason reason) : reason_(reason) {}
  Reason reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// `name` without blanks at its ends. Throws TagError when nothing is left.
std::string requiredTagName(std::string_view name);

/// Tags messages, making the tag or giving the one there is another colour. Each message that did
/// not carry it yet is journalled by its digest, which outlives the catalog; identifiers of no
/// message are passed over. `by` is who did it. Throws ArchiveError (ReadOnly), TagError,
/// SQLiteError, FileError; nothing is tagged then.
ArchiveTag applyTag(MailArchive& archive, std::string_view name, const std::string& colour,
                    const std::vector<std::int64_t>& messageIDs, const std::string& by);

/// Puts a tag that is there on one message and journals that, inside an open batch. False when the
/// message carries it already or is not there.
bool tagMessage(MailArchive& archive, const ArchiveTag& tag, std::int64_t messageID,
                const std::string& by);

/// Takes a tag off messages; returns how many carried it. Throws as `applyTag`.
std::int64_t removeTag(MailArchive& archive, const ArchiveTag& tag,
                       const std::vector<std::int64_t>& messageIDs, const std::string& by);

/// The enabled rules in the order in which they run. Throws SQLiteError.
TagRuleCache::Rules activeTagRules(MailArchive& archive);

/// Applies each of `rules` that matches one message; returns the tags. With the `text` that was
/// indexed of it, questions about words are asked of that text alone: the cost is then the
/// message's, whatever the archive holds. A rule that fails is skipped, and one without a complete
/// condition never matches. Throws only what concerns the archive and not the rule (a full disk, a
/// damaged catalog).
std::vector<std::string> applyTagRules(MailArchive& archive, std::int64_t messageID,
                                       const std::vector<TagRule>& rules, const std::string& by,
                                       const IndexedText* text = nullptr);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_TAGGING_H_
