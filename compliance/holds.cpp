#include "compliance/holds.h"

#include "store/catalog_holds.h"
#include "store/recorded_change.h"

namespace ambervane {

LocalizedMessage HoldError::message() const {
  struct Words {
    LocalizedMessage operator()(const Unknown& r) const {
      return {"There is no legal hold %@", {r.id}};
    }
    LocalizedMessage operator()(const AlreadyReleased& r) const {
      return {"The legal hold %@ has been released already; a released hold never comes back",
              {r.id}};
    }
  };
  return std::visit(Words{}, reason_);
}

HoldCoverage placeHold(MailArchive& archive, const LegalHold& hold) {
  // What waits for a block is read from a pack like all else.
  archive.flushSolidBlock();
  RecordedChange change(archive);
  CatalogHolds(archive.catalog()).save(hold);
  const HoldCoverage coverage = reapplyHold(archive, hold);
  auto details = holdDetails(hold);
  details["messages"] = std::to_string(coverage.messages);
  if (coverage.unreadable > 0) details["unreadable"] = std::to_string(coverage.unreadable);
  archive.journal().append(AuditAction::legalHoldPlaced, hold.id, details);
  change.finish();
  return coverage;
}

void releaseHold(MailArchive& archive, const std::string& id, const std::string& reason) {
  RecordedChange change(archive);
  CatalogHolds catalog(archive.catalog());
  auto hold = catalog.hold(id);
  if (!hold) throw HoldError(HoldError::Unknown{id});
  if (!hold->isActive()) throw HoldError(HoldError::AlreadyReleased{id});
  hold->releasedAt = archive.now();
  catalog.save(*hold);
  catalog.unlinkAll(id);
  archive.journal().append(AuditAction::legalHoldReleased, id, {{"reason", reason}});
  change.finish();
}

}  // namespace ambervane
