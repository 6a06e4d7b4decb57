#include "compliance/journal_record.h"

#include <algorithm>
#include <array>
#include <limits>

#include "base/text.h"
#include "store/unkept_changes.h"

namespace ambervane {
namespace {

std::string_view detail(const AuditEntry& entry, const char* key) {
  const auto found = entry.details.find(key);
  return found == entry.details.end() ? std::string_view() : std::string_view(found->second);
}

std::int64_t numberIn(const AuditEntry& entry, const char* key, std::int64_t otherwise) {
  return parseInteger(detail(entry, key)).value_or(otherwise);
}

std::string_view subjectOf(const AuditEntry& entry) {
  return entry.subject ? std::string_view(*entry.subject) : std::string_view();
}

/// Actions of which there are few, and whose entries `JournalRecord::take` understands.
bool isOnTheArchive(AuditAction action) {
  using enum AuditAction;
  constexpr std::array kActions = {archiveCreated,   policyChanged,   integrityVerified,
                                   messageErased,    packSealed,      chainSealed,
                                   retentionApplied, legalHoldPlaced, legalHoldReleased};
  return std::ranges::find(kActions, action) != kActions.end();
}

bool isBefore(const Arrival& a, const Arrival& b) {
  return a.digest != b.digest ? a.digest < b.digest : a.seq < b.seq;
}

}  // namespace

JournalRecord::JournalRecord(const AuditJournal& journal, std::optional<std::int64_t> wantedSeq) {
  // Whether an entry holds may be told by a later one, so that the few that are not about single
  // messages wait for the end.
  std::vector<AuditEntry> waiting;
  std::vector<std::pair<RawDigest, std::int64_t>> erasures;
  journal.forEachEntry([&](const AuditEntry& entry) {
    if (wantedSeq == entry.seq && !wantedHash_) wantedHash_ = entry.entryHash;
    if (entry.action == AuditAction::messageIngested) {
      takeArrival(entry);
    } else if (entry.action == AuditAction::integrityFailed) {
      if (const auto range = unkeptEntries(entry)) broken_.emplace_back(range->first, range->last);
    } else if (entry.action == AuditAction::messageErased && rawDigest(subjectOf(entry))) {
      erasures.emplace_back(*rawDigest(subjectOf(entry)), entry.seq);
    } else if (isOnTheArchive(entry.action)) {
      waiting.push_back(entry);
    }
    return true;
  });
  std::sort(arrivals_.begin(), arrivals_.end(), isBefore);
  for (const auto& [digest, seq] : erasures) {
    if (!isVoid(seq)) erased_[digest] = seq;
  }
  for (const AuditEntry& entry : waiting) {
    if (!isVoid(entry.seq)) take(entry);
  }
  for (const auto& [kind, messages] : openApprovals_) erasedByList_ += messages;
}

void JournalRecord::take(const AuditEntry& entry) {
  const std::string_view subject = subjectOf(entry);
  switch (entry.action) {
    case AuditAction::integrityVerified:
      if (subject == "startup") takeLost(entry);
      break;
    case AuditAction::messageErased:
      takeApproval(entry, "erasure");
      break;
    case AuditAction::retentionApplied:
      takeRetention(entry);
      break;
    case AuditAction::archiveCreated:
      takePolicy(entry);
      break;
    case AuditAction::policyChanged:
      if (subject == "retention") takePolicy(entry);
      if (subject == "catalog" && detail(entry, "action") == "rebuild finished") {
        rebuiltAt_ = entry.seq;
      }
      break;
    case AuditAction::packSealed:
      packs_[std::string(subject)].emplace_back(detail(entry, "sha256"));
      break;
    case AuditAction::chainSealed:
      takeSeal(entry);
      break;
    case AuditAction::legalHoldPlaced:
    case AuditAction::legalHoldReleased:
      takeHold(entry);
      break;
    default:
      break;
  }
}

void JournalRecord::takeArrival(const AuditEntry& entry) {
  const auto digest = rawDigest(entry.subject.value_or(""));
  if (!digest) return;
  Arrival arrival;
  arrival.digest = *digest;
  arrival.seq = entry.seq;
  arrival.seconds = entry.timestamp.seconds;
  arrival.size = numberIn(entry, "size", -1);
  const std::int64_t attachments = numberIn(entry, "attachments", -1);
  if (attachments >= 0 && attachments <= std::numeric_limits<std::int32_t>::max()) {
    arrival.attachments = static_cast<std::int32_t>(attachments);
  }
  if (const std::string_view name = detail(entry, "class"); !name.empty()) {
    auto known = classNumbers_.find(name);
    if (known == classNumbers_.end()) {
      known = classNumbers_.emplace(name, static_cast<std::int32_t>(classes_.size())).first;
      classes_.emplace_back(name);
    }
    arrival.ofClass = known->second;
  }
  arrivals_.push_back(arrival);
}

/// A startup after a crash names the messages that were recorded and had not yet become durable, or
/// the first of them and how many there were.
void JournalRecord::takeLost(const AuditEntry& entry) {
  std::int64_t unnamed = numberIn(entry, "lost_in_crash", 0);
  if (unnamed <= 0) return;
  std::optional<RawDigest> first;
  for (const std::string_view hex : splitOmittingEmpty(detail(entry, "digests"), ",")) {
    const auto digest = rawDigest(trim(hex));
    if (!digest) continue;
    lost_[*digest] = entry.seq;
    if (!first) first = digest;
    --unnamed;
  }
  if (first && unnamed > 0) crashes_.push_back({entry.seq, *first, unnamed});
}

/// An approved list is recorded before it is worked through and again at its end, by number; one
/// that has no end may have done any part of it.
void JournalRecord::takeApproval(const AuditEntry& entry, const std::string& kind) {
  const std::string_view action = detail(entry, "action");
  std::int64_t& open = openApprovals_[kind];
  if (action == kind + " approved") {
    erasedByList_ += open;
    open = std::max<std::int64_t>(0, numberIn(entry, "approved_count", 0));
  } else if (action == kind + " finished") {
    erasedByList_ += std::clamp<std::int64_t>(numberIn(entry, "erased", 0), 0, open);
    open = 0;
  }
}

void JournalRecord::takeRetention(const AuditEntry& entry) {
  takeApproval(entry, "disposal");
  const bool isReclassification = entry.subject == "reclassify";
  if (isReclassification || entry.subject == "retention dates") datesAppliedAt_ = entry.seq;
  if (!isReclassification) return;
  reclassified_ = {.seq = entry.seq, .seconds = entry.timestamp.seconds, .messages = {}};
  std::int64_t total = 0;
  for (const std::string_view part : splitOmittingEmpty(detail(entry, "classes"), ",")) {
    const std::size_t equals = part.rfind('=');
    if (equals == std::string_view::npos) continue;
    const std::int64_t messages = parseInteger(part.substr(equals + 1)).value_or(0);
    if (messages > 0) reclassified_.messages[std::string(part.substr(0, equals))] += messages;
    total += messages;
  }
  // A class may have a comma in its name.
  if (total != numberIn(entry, "messages", -1)) reclassified_.messages.clear();
}

/// The founding entry tells the first policy, every later change what has become different.
void JournalRecord::takePolicy(const AuditEntry& entry) {
  RecordedPolicy& before = policies_.back();
  if (const auto month = parseInteger(detail(entry, "from_financial_year_end_month"))) {
    before.financialYearEndMonth = month;
  }
  RecordedPolicy policy = before;
  if (const auto regimes = entry.details.find("regimes"); regimes != entry.details.end()) {
    policy.regimes = regimesFromList(regimes->second);
  }
  const bool isFirst = entry.action == AuditAction::archiveCreated;
  if (const auto years = parseInteger(detail(entry, isFirst ? "retention_years" : "to_years"))) {
    policy.minimumYears = years;
  }
  if (const auto month = parseInteger(detail(entry, "to_financial_year_end_month"))) {
    policy.financialYearEndMonth = month;
  }
  policies_.push_back(std::move(policy));
  if (!isFirst) policyAt_ = entry.seq;
}

void JournalRecord::takeHold(const AuditEntry& entry) {
  if (!entry.subject) return;
  RecordedHold& hold = holds_[*entry.subject];
  hold.seq = entry.seq;
  if (entry.action == AuditAction::legalHoldReleased) {
    hold.isActive = false;
  } else if (detail(entry, "note").starts_with("carried over")) {
    hold.isActive = std::nullopt;  // as it was in the archive it comes from
  } else {
    hold.isActive = true;
    hold.messages = numberIn(entry, "messages", 0);
  }
}

void JournalRecord::takeSeal(const AuditEntry& entry) {
  const auto number = parseInteger(entry.subject.value_or(""));
  if (!number) return;
  seals_[*number].push_back({std::string(detail(entry, "head")), numberIn(entry, "entries", -1),
                             numberIn(entry, "messages", -1)});
}

std::span<const Arrival> JournalRecord::arrivalsOf(const RawDigest& digest) const {
  const auto first = std::ranges::lower_bound(arrivals_, digest, {}, &Arrival::digest);
  return {first, std::ranges::upper_bound(first, arrivals_.end(), digest, {}, &Arrival::digest)};
}

bool JournalRecord::isVoid(std::int64_t seq) const {
  return std::ranges::any_of(
      broken_, [seq](const auto& range) { return seq >= range.first && seq <= range.second; });
}

bool JournalRecord::isExpected(std::span<const Arrival> ofOneDigest) const {
  for (auto arrival = ofOneDigest.rbegin(); arrival != ofOneDigest.rend(); ++arrival) {
    if (isVoid(arrival->seq)) continue;
    const auto lost = lost_.find(arrival->digest);
    return lost == lost_.end() || lost->second < arrival->seq;
  }
  return false;
}

/// A crash takes the newest entries, so that what it did not name came behind what it named.
std::int64_t JournalRecord::lostUnnamed(std::vector<std::int64_t> missingSeqs) const {
  std::int64_t lost = 0;
  for (const Crash& crash : crashes_) {
    std::int64_t first = crash.seq;
    for (const Arrival& arrival : arrivalsOf(crash.first)) {
      if (arrival.seq < crash.seq) first = arrival.seq;
    }
    const auto within = [&](std::int64_t seq) { return seq > first && seq < crash.seq; };
    const auto explained = static_cast<std::int64_t>(std::erase_if(missingSeqs, within));
    lost += std::min(crash.unnamed, explained);
  }
  return lost;
}

std::int64_t JournalRecord::erasedAt(const RawDigest& digest) const {
  const auto found = erased_.find(digest);
  return found == erased_.end() ? 0 : found->second;
}

const Arrival& JournalRecord::decisive(std::span<const Arrival> ofOneDigest) const {
  for (auto arrival = ofOneDigest.rbegin(); arrival != ofOneDigest.rend(); ++arrival) {
    if (!isVoid(arrival->seq)) return *arrival;
  }
  return ofOneDigest.back();
}

const std::string& JournalRecord::className(const Arrival& arrival) const {
  static const std::string kNone;
  return arrival.ofClass < 0 ? kNone : classes_[static_cast<std::size_t>(arrival.ofClass)];
}

}  // namespace ambervane
