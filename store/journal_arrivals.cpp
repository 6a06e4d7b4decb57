#include "store/journal_arrivals.h"

#include <algorithm>
#include <iterator>

#include "base/text.h"
#include "store/unkept_changes.h"

namespace ambervane {

JournalArrivals::JournalArrivals(const AuditJournal& journal) {
  forEachKeptEntry(journal, [this](const AuditEntry& entry) {
    if (entry.action == AuditAction::messageIngested) take(entry);
  });
  keepLastOfEachDigest();
  keepLastOfEachID();
}

void JournalArrivals::take(const AuditEntry& entry) {
  const auto digest = rawDigest(entry.subject.value_or(""));
  if (!digest) return;
  const auto id = entry.details.find("id");
  JournalArrival arrival;
  arrival.digest = *digest;
  arrival.seq = entry.seq;
  arrival.id = id == entry.details.end()
                   ? 0
                   : std::max<std::int64_t>(0, parseInteger(id->second).value_or(0));
  arrival.seconds = entry.timestamp.seconds;
  arrival.ofClass = numberOf(entry, "class");
  arrival.origin = numberOf(entry, "origin");
  arrival.originSource = numberOf(entry, "origin_source");
  highestID_ = std::max(highestID_, arrival.id);
  arrivals_.push_back(arrival);
}

std::int32_t JournalArrivals::numberOf(const AuditEntry& entry, const char* detail) {
  const auto found = entry.details.find(detail);
  if (found == entry.details.end()) return 0;
  const auto [known, isNew] =
      textNumbers_.try_emplace(found->second, static_cast<std::int32_t>(texts_.size()));
  if (isNew) texts_.push_back(found->second);
  return known->second;
}

void JournalArrivals::keepLastOfEachDigest() {
  std::ranges::sort(arrivals_, [](const JournalArrival& a, const JournalArrival& b) {
    return a.digest != b.digest ? a.digest < b.digest : a.seq > b.seq;
  });
  const auto isSame = [](const JournalArrival& a, const JournalArrival& b) {
    return a.digest == b.digest;
  };
  arrivals_.erase(std::unique(arrivals_.begin(), arrivals_.end(), isSame), arrivals_.end());
}

/// A batch that was not kept leaves entries whose numbers were given again.
void JournalArrivals::keepLastOfEachID() {
  std::vector<JournalArrival*> byID;
  byID.reserve(arrivals_.size());
  for (JournalArrival& arrival : arrivals_) byID.push_back(&arrival);
  std::ranges::sort(byID, [](const JournalArrival* a, const JournalArrival* b) {
    return a->id != b->id ? a->id < b->id : a->seq < b->seq;
  });
  for (std::size_t i = 1; i < byID.size(); ++i) {
    if (byID[i - 1]->id == byID[i]->id) byID[i - 1]->id = 0;
  }
}

const JournalArrival* JournalArrivals::find(const RawDigest& digest) const noexcept {
  const auto found = std::ranges::lower_bound(arrivals_, digest, {}, &JournalArrival::digest);
  return found != arrivals_.end() && found->digest == digest ? &*found : nullptr;
}

}  // namespace ambervane
