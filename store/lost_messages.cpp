#include "store/lost_messages.h"

#include <algorithm>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "store/mail_archive.h"

namespace ambervane {
namespace {

constexpr const char* kCommittedKey = "journal_committed";
constexpr std::size_t kMostNamed = 200;
/// Entries on other things that may gather behind the last batch before the note is moved up.
constexpr std::int64_t kMostPassed = 1000;

/// The digests of messages journalled as ingested after entry `committed`, oldest first, without
/// those that have a row.
std::vector<std::string> withoutRow(MailArchive& archive, std::int64_t committed) {
  std::vector<std::string> digests;
  archive.journal().forEachEntryNewestFirst([&](const AuditEntry& entry) {
    if (entry.seq <= committed) return false;
    if (entry.action != AuditAction::messageIngested || !entry.subject) return true;
    if (!archive.catalog().messageID(*entry.subject)) digests.push_back(*entry.subject);
    return true;
  });
  std::reverse(digests.begin(), digests.end());
  return digests;
}

}  // namespace

void noteJournalCommitted(MailArchive& archive) {
  archive.catalog().setMeta(kCommittedKey, std::to_string(archive.journal().count()));
}

std::optional<std::int64_t> journalCommitted(MailArchive& archive) {
  return parseInteger(archive.catalog().meta(kCommittedKey).value_or(""));
}

std::int64_t nameLostMessages(MailArchive& archive) {
  Catalog& catalog = archive.catalog();
  std::vector<std::string> lost = catalog.unplacedMessages();
  const std::int64_t swept = catalog.sweepIncompleteMessages();
  if (swept > 0) catalog.bumpMutationGeneration();

  // A catalog from before the note was kept is taken at its word.
  const auto committed = journalCommitted(archive);
  const std::int64_t passed = committed ? archive.journal().count() - *committed : 0;
  if (passed > 0) std::ranges::move(withoutRow(archive, *committed), std::back_inserter(lost));
  std::set<std::string> seen;
  std::erase_if(lost, [&seen](const std::string& digest) { return !seen.insert(digest).second; });

  if (!lost.empty()) {
    const std::span<const std::string> named(lost.data(), std::min(lost.size(), kMostNamed));
    std::map<std::string, std::string> details = {
        {"lost_in_crash", std::to_string(lost.size())},
        {"digests", join({named.begin(), named.end()}, ",")}};
    if (swept > 0) details["swept_incomplete_rows"] = std::to_string(swept);
    archive.journal().append(AuditAction::integrityVerified, "startup", details);
  }
  if (!committed || !lost.empty() || passed > kMostPassed) noteJournalCommitted(archive);
  return static_cast<std::int64_t>(lost.size());
}

}  // namespace ambervane
