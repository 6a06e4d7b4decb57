#include "store/unkept_changes.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "base/text.h"
#include "store/lost_messages.h"
#include "store/mail_archive.h"

namespace ambervane {
namespace {

/// What openings for reading record; any other entry is a writer's.
bool isReaders(AuditAction action) {
  return action == AuditAction::searchPerformed || action == AuditAction::messageRead ||
         action == AuditAction::messageExported;
}

/// Whether such entries are never made but with a change of the catalog in one transaction.
bool isOfAChange(const AuditEntry& entry) {
  switch (entry.action) {
    case AuditAction::legalHoldPlaced:
    case AuditAction::legalHoldReleased:
    case AuditAction::tagApplied:
    case AuditAction::tagRemoved:
    case AuditAction::tagDeleted:
    case AuditAction::noteAdded:
    case AuditAction::noteEdited:
    case AuditAction::noteRemoved:
    case AuditAction::smartFolderSaved:
    case AuditAction::smartFolderDeleted:
      return true;
    case AuditAction::retentionApplied:
      return entry.subject == "reclassify" || entry.subject == "retention dates";
    default:
      return false;
  }
}

}  // namespace

std::optional<EntryRange> unkeptEntries(const AuditEntry& entry) {
  constexpr std::array<std::string_view, 4> kSubjects = {"import", "sync", "merge", "catalog"};
  if (entry.action != AuditAction::integrityFailed || !entry.subject) return std::nullopt;
  if (std::ranges::find(kSubjects, *entry.subject) == kSubjects.end()) return std::nullopt;
  const auto note = entry.details.find("note");
  if (note == entry.details.end()) return std::nullopt;
  // "entries 12 to 40 belong to a batch that was not kept; ...", or "tell of a change ...".
  const auto words = splitOmittingEmpty(note->second, " ");
  if (words.size() < 5 || words[0] != "entries" || words[2] != "to") return std::nullopt;
  if (words[4] != "belong" && words[4] != "tell") return std::nullopt;
  const auto first = parseInteger(words[1]);
  const auto last = parseInteger(words[3]);
  if (!first || !last || *last >= entry.seq) return std::nullopt;
  return EntryRange{*first, *last};
}

void forEachKeptEntry(const AuditJournal& journal,
                      const std::function<void(const AuditEntry&)>& body) {
  std::vector<EntryRange> unkept;
  journal.forEachEntry([&](const AuditEntry& entry) {
    if (const auto range = unkeptEntries(entry)) unkept.push_back(*range);
    return true;
  });
  journal.forEachEntry([&](const AuditEntry& entry) {
    const bool isKept = std::ranges::none_of(unkept, [&entry](const EntryRange& range) {
      return entry.seq >= range.first && entry.seq <= range.last;
    });
    if (isKept) body(entry);
    return true;
  });
}

bool nameUnkeptChange(MailArchive& archive) {
  const auto committed = journalCommitted(archive);
  if (!committed) return false;
  EntryRange unkept;
  archive.journal().forEachEntryNewestFirst([&](const AuditEntry& entry) {
    if (entry.seq <= *committed) return false;
    if (isReaders(entry.action)) return true;
    if (!isOfAChange(entry)) return false;
    unkept.first = entry.seq;
    if (unkept.last == 0) unkept.last = entry.seq;
    return true;
  });
  if (unkept.last == 0) return false;
  archive.journal().append(
      AuditAction::integrityFailed, "catalog",
      {{"note", "entries " + std::to_string(unkept.first) + " to " + std::to_string(unkept.last) +
                    " tell of a change that was not kept"}});
  return true;
}

}  // namespace ambervane
