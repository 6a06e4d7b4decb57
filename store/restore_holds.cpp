#include "store/restore_holds.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/json.h"
#include "base/text.h"
#include "store/catalog_holds.h"
#include "store/hold_application.h"
#include "store/unkept_changes.h"

namespace ambervane {
namespace {

constexpr const char* kUnknownReason = "recovered from the audit journal";

struct RestoredHold {
  LegalHold hold;
  bool hasCriteria = false;
};

std::string detail(const AuditEntry& entry, const char* key, std::string otherwise = {}) {
  const auto found = entry.details.find(key);
  return found == entry.details.end() || found->second.empty() ? std::move(otherwise)
                                                               : found->second;
}

RestoredHold placedHold(const AuditEntry& entry) {
  RestoredHold restored;
  restored.hold.id = entry.subject.value_or("");
  restored.hold.name = detail(entry, "name", restored.hold.id);
  restored.hold.reason = detail(entry, "reason", kUnknownReason);
  restored.hold.custodian = detail(entry, "custodian");
  restored.hold.createdAt = entry.timestamp;
  try {
    restored.hold.criteria = holdCriteriaFromJson(detail(entry, "definition"));
    restored.hasCriteria = restored.hold.criteria != HoldCriteria();
  } catch (const JsonError&) {
    // Placed by an older version, or damaged: told as a hold without criteria.
  }
  return restored;
}

std::vector<RestoredHold> recordedHolds(const AuditJournal& journal) {
  std::vector<RestoredHold> holds;
  std::map<std::string, std::size_t> byID;
  forEachKeptEntry(journal, [&](const AuditEntry& entry) {
    const std::string id = entry.subject.value_or("");
    const auto known = byID.find(id);
    if (entry.action == AuditAction::legalHoldPlaced && !id.empty()) {
      if (known != byID.end()) {
        holds[known->second] = placedHold(entry);
      } else {
        byID.emplace(id, holds.size());
        holds.push_back(placedHold(entry));
      }
    } else if (entry.action == AuditAction::legalHoldReleased && known != byID.end()) {
      holds[known->second].hold.releasedAt = entry.timestamp;
    }
  });
  return holds;
}

}  // namespace

std::int64_t restoreHolds(MailArchive& archive) {
  const auto holds = recordedHolds(archive.journal());
  std::vector<std::string> uncovered;
  archive.catalog().atomically([&] {
    CatalogHolds catalog(archive.catalog());
    for (const RestoredHold& restored : holds) {
      catalog.save(restored.hold);
      if (!restored.hold.isActive()) continue;
      if (restored.hasCriteria) {
        reapplyHold(archive, restored.hold);
      } else {
        uncovered.push_back(restored.hold.name);
      }
    }
  });
  if (!uncovered.empty()) {
    archive.journal().append(
        AuditAction::integrityFailed, "legal-holds",
        {{"problem", "holds restored without criteria, so they cover no messages"},
         {"holds", join(uncovered, ", ")},
         {"action", "re-place these holds before relying on them"}});
  }
  return static_cast<std::int64_t>(holds.size());
}

}  // namespace ambervane
