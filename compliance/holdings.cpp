#include "compliance/holdings.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "base/bytes.h"
#include "base/calendar.h"
#include "base/text.h"
#include "store/pack_error.h"

namespace ambervane {
namespace {

// The words, each with a count and examples to fill in.
constexpr const char* kAgree =
    "All %@ messages recorded in the journal are in the catalog; their dates, classes and "
    "references agree";
constexpr const char* kMissing =
    "%1$@ messages recorded in the journal are not in the catalog (%2$@)";
constexpr const char* kUnrecorded =
    "%1$@ messages in the catalog have no entry in the journal (%2$@)";
constexpr const char* kErased =
    "%1$@ messages are marked as erased without an erasure in the journal (%2$@)";
constexpr const char* kAltered =
    "%1$@ messages differ from their journal entry in size, class, number of attachments or time "
    "of archiving (%2$@)";
constexpr const char* kRevived =
    "%1$@ messages whose erasure is in the journal are not marked as erased (%2$@)";
constexpr const char* kClasses =
    "%1$@ retention classes have other numbers of messages than when the rules were applied "
    "(%2$@)";
constexpr const char* kPolicy =
    "%1$@ rules of the retention policy are not those recorded in the journal (%2$@)";
constexpr const char* kExpiry =
    "%1$@ keep-until dates are not what the retention policy gives (%2$@)";
constexpr const char* kFiling =
    "%1$@ messages lie in no mailbox or carry another date than there or in their header (%2$@)";
constexpr const char* kReferences = "%1$@ references to attachments do not add up (%2$@)";
constexpr const char* kPacks = "%1$@ sealed packs are not as the journal recorded them (%2$@)";
constexpr const char* kSeals =
    "%1$@ seals recorded in the journal are missing or say something else (%2$@)";
constexpr const char* kHolds = "%1$@ legal holds are not as the journal recorded them (%2$@)";

constexpr std::size_t kExamples = 3;
constexpr std::size_t kShownDigits = 12;
/// Seconds by which a message's row may be older than its entry (an append to a slow disk lies
/// between them), or by which its keep-until date may have been worked out later.
constexpr double kCommitSeconds = 600;
/// As the row of a message knows the moment it came in a little less exactly than its entry does.
constexpr double kRowGrain = 1;

/// A fault by its number and the first few it was found in.
struct Tally {
  std::int64_t count = 0;
  std::vector<std::string> examples;

  void add(std::string_view what) {
    ++count;
    if (examples.size() < kExamples) examples.emplace_back(what);
  }
  void addDigest(std::string_view hex) { add(std::string(hex.substr(0, kShownDigits)) + "…"); }
};

class Comparison {
 public:
  Comparison(MailArchive& archive, const JournalRecord& journal)
      : archive_(archive), db_(archive.catalog().database()), journal_(journal) {}

  HoldingsResult run(const std::vector<std::string>& misdated) {
    comparePolicy();
    compareMessages();
    compareClasses();
    compareFiling(misdated);
    compareReferences();
    comparePacks();
    compareSeals();
    compareHolds();
    HoldingsResult result;
    result.agreement = {kAgree, {std::to_string(held_)}};
    for (const auto& [words, tally] : {std::pair{kMissing, &missing_},
                                       {kUnrecorded, &unrecorded_},
                                       {kErased, &erased_},
                                       {kRevived, &revived_},
                                       {kAltered, &altered_},
                                       {kClasses, &classes_},
                                       {kPolicy, &policy_},
                                       {kExpiry, &expiry_},
                                       {kFiling, &filing_},
                                       {kReferences, &references_},
                                       {kPacks, &packs_},
                                       {kSeals, &seals_},
                                       {kHolds, &holds_}}) {
      if (tally->count == 0) continue;
      result.faults.push_back({words, {std::to_string(tally->count), join(tally->examples, ", ")}});
    }
    return result;
  }

 private:
  void comparePolicy();
  void compareMessages();
  void findMissing();
  void compareRow(const Row& row);
  void compareErased(const Row& row, const RawDigest& digest, const Arrival& arrival);
  bool agrees(const Row& row, const Arrival& arrival) const;
  void countClass(const Row& row, const Arrival& arrival);
  void compareClasses();
  bool isDueAsPolicySays(const Row& row, const Arrival& arrival) const;
  void compareFiling(const std::vector<std::string>& misdated);
  void compareReferences();
  void comparePacks();
  bool isAsSealed(const PackRow* row, const std::string& name, const std::string& sha256);
  void compareSeals();
  void compareHolds();

  MailArchive& archive_;
  SQLiteDatabase& db_;
  const JournalRecord& journal_;
  std::vector<bool> found_;  ///< by index of the digest's first arrival
  std::int64_t held_ = 0;
  std::int64_t erasedUnnamed_ = 0;
  std::map<std::string, std::int64_t> classCounts_;  ///< of what was held when rules were applied
  bool isClassCountSure_ = true;  ///< false: something was erased in the same moment
  Tally missing_, unrecorded_, erased_, revived_, altered_, classes_, policy_, expiry_, filing_,
      references_, packs_, seals_, holds_;
};

void Comparison::compareMessages() {
  found_.assign(journal_.arrivals().size(), false);
  db_.forEachRow(
      "SELECT id, sha256, size, attachment_count, retention_class, sent_at, internal_at, "
      "ingested_at, expires_at, erased, erased_at FROM message ORDER BY id",
      {}, [this](const Row& row) {
        compareRow(row);
        return true;
      });
  // A list that was approved says how many it erased and not which.
  if (erasedUnnamed_ <= journal_.erasedByList()) erased_ = {};
  findMissing();
}

void Comparison::findMissing() {
  const auto& arrivals = journal_.arrivals();
  std::vector<std::int64_t> seqs;
  for (std::size_t i = 0; i < arrivals.size();) {
    const RawDigest& digest = arrivals[i].digest;
    const auto group = journal_.arrivalsOf(digest);
    // A rebuild cannot bring back a row whose message was erased.
    const bool isGone = journal_.rebuiltAt() > 0 && journal_.erasedAt(digest) > 0;
    if (!found_[i] && !isGone && journal_.isExpected(group)) {
      missing_.addDigest(hexEncode({digest.data(), digest.size()}));
      seqs.push_back(journal_.decisive(group).seq);
    }
    i += group.size();
  }
  std::int64_t explained = journal_.lostUnnamed(std::move(seqs));
  if (journal_.rebuiltAt() > 0) {
    explained += std::max<std::int64_t>(0, journal_.erasedByList() - erasedUnnamed_);
  }
  if (missing_.count <= explained) missing_ = {};
}

void Comparison::compareRow(const Row& row) {
  const std::string sha256 = row.string("sha256");
  const auto digest = rawDigest(sha256);
  const auto arrivals = digest ? journal_.arrivalsOf(*digest) : std::span<const Arrival>();
  if (arrivals.empty()) {
    unrecorded_.addDigest(sha256);
    return;
  }
  ++held_;
  found_[static_cast<std::size_t>(arrivals.data() - journal_.arrivals().data())] = true;
  const Arrival& arrival = journal_.decisive(arrivals);
  if (!agrees(row, arrival)) altered_.addDigest(sha256);
  countClass(row, arrival);
  compareErased(row, *digest, arrival);
  if (!row.boolean("erased") && !isDueAsPolicySays(row, arrival)) expiry_.addDigest(sha256);
}

void Comparison::compareErased(const Row& row, const RawDigest& digest, const Arrival& arrival) {
  const std::int64_t named = journal_.erasedAt(digest);
  if (!row.boolean("erased")) {
    if (named > arrival.seq) revived_.addDigest(row.string("sha256"));
  } else if (named == 0) {
    ++erasedUnnamed_;
    erased_.addDigest(row.string("sha256"));
  }
}

bool Comparison::agrees(const Row& row, const Arrival& arrival) const {
  if (arrival.size >= 0 && arrival.size != row.integer("size")) return false;
  if (arrival.attachments >= 0 && arrival.attachments != row.integer("attachment_count")) {
    return false;
  }
  const std::string& named = journal_.className(arrival);
  if (!named.empty() && named != row.string("retention_class") &&
      journal_.reclassified().seq < arrival.seq) {
    return false;
  }
  const double archived = row.real("ingested_at").value_or(0);
  if (archived < arrival.seconds - kCommitSeconds) return false;
  // A rebuilt row counts as archived when it was rebuilt.
  return archived <= arrival.seconds + kCommitSeconds || journal_.rebuiltAt() > arrival.seq;
}

/// Erasing leaves a message its class.
void Comparison::countClass(const Row& row, const Arrival& arrival) {
  const RecordedClasses& applied = journal_.reclassified();
  if (arrival.seq > applied.seq) return;
  if (row.boolean("erased")) {
    const double erased = row.real("erased_at").value_or(0);
    if (erased < applied.seconds) return;
    if (erased == applied.seconds) isClassCountSure_ = false;
  }
  ++classCounts_[row.string("retention_class")];
}

void Comparison::compareClasses() {
  const RecordedClasses& applied = journal_.reclassified();
  // A rebuild takes the classes as they were at the arrival.
  if (applied.messages.empty() || !isClassCountSure_ || journal_.rebuiltAt() > applied.seq) return;
  std::map<std::string, std::int64_t> differences = applied.messages;
  for (const auto& [name, count] : classCounts_) differences[name] -= count;
  for (const auto& [name, difference] : differences) {
    if (difference != 0) classes_.add(name);
  }
}

/// What of the policy the journal records must be so in the manifest: all dates follow from it.
void Comparison::comparePolicy() {
  const RetentionPolicy& policy = archive_.policy();
  const RecordedPolicy& recorded = journal_.policies().back();
  if (recorded.regimes && *recorded.regimes != policy.regimes) policy_.add("regimes");
  if (recorded.minimumYears && *recorded.minimumYears != policy.minimumYears()) {
    policy_.add("minimumYears");
  }
  if (recorded.financialYearEndMonth &&
      *recorded.financialYearEndMonth != policy.financialYearEndMonth) {
    policy_.add("financialYearEndMonth");
  }
}

/// From what a message's retention may count, and when it was taken in.
struct CountedFrom {
  std::optional<Date> dated;
  Date taken;

  explicit CountedFrom(const Row& row)
      : dated(row.date("sent_at")), taken(row.date("ingested_at").value_or(Date{})) {
    if (!dated) dated = row.date("internal_at");
  }
};

/// A message without a usable date counts from the moment it was taken in, which the row knows a
/// little too early: any date between those of the two ends of that span will do.
bool isDue(const std::optional<Date>& stored, const CountedFrom& from,
           const RetentionPolicy& policy, const RetentionClass& ofClass) {
  const auto due = [&](Date taken) {
    return policy.expiryDate(from.dated.value_or(taken), taken, ofClass);
  };
  const auto earliest = due(from.taken);
  const auto latest = due({from.taken.seconds + kCommitSeconds});
  if (!stored) return !latest;
  return earliest && stored->seconds >= earliest->seconds - kRowGrain &&
         (!latest || stored->seconds <= latest->seconds + kRowGrain);
}

/// Whether some number of years under a policy as it was recorded once gives the date. The journal
/// does not record the years of each class; fewer than the law asks for are none.
bool couldBeDue(const std::optional<Date>& stored, const CountedFrom& from,
                const RecordedPolicy& recorded, RetentionPolicy policy, RetentionClass ofClass) {
  if (!stored) return false;
  policy.regimes = recorded.regimes.value_or(policy.regimes);
  policy.financialYearEndMonth =
      static_cast<int>(recorded.financialYearEndMonth.value_or(policy.financialYearEndMonth));
  const Date counted{std::min(from.dated.value_or(from.taken).seconds, from.taken.seconds)};
  for (const bool fromYearEnd : {true, false}) {
    ofClass.fromEndOfBusinessYear = fromYearEnd;
    const Date start = policy.periodStart(counted, ofClass).date;
    ofClass.years = civilTime(*stored).year - civilTime(start).year;
    if (ofClass.years < 1) continue;
    policy.defaultClass.years = ofClass.years;
    if (isDue(stored, from, policy, ofClass)) return true;
  }
  return false;
}

bool Comparison::isDueAsPolicySays(const Row& row, const Arrival& arrival) const {
  const RetentionPolicy& policy = archive_.policy();
  const std::string name = row.string("retention_class");
  const auto stored = row.date("expires_at");
  const CountedFrom from(row);
  const auto ofClass = policy.retentionClass(name);
  if (ofClass && isDue(stored, from, policy, *ofClass)) return true;
  // Of a class that the policy has given up nobody knows the years any more, nor of what was before
  // a change that has not been applied.
  if (ofClass && !journal_.mayPredatePolicy(arrival)) return false;
  const RetentionClass named{.identifier = name, .label = "", .years = 0};
  return std::ranges::any_of(journal_.policies(), [&](const RecordedPolicy& recorded) {
    return couldBeDue(stored, from, recorded, policy, named);
  });
}

void Comparison::compareFiling(const std::vector<std::string>& misdated) {
  std::set<std::string> digests(misdated.begin(), misdated.end());
  db_.forEachRow(
      "SELECT m.sha256 AS sha256 FROM message m WHERE NOT EXISTS (SELECT 1 FROM message_folder mf "
      "JOIN folder f ON f.id = mf.folder_id JOIN account a ON a.id = f.account_id WHERE "
      "mf.message_id = m.id AND mf.sent_at IS m.sent_at)",
      {}, [&digests](const Row& row) {
        digests.insert(row.string("sha256"));
        return true;
      });
  for (const std::string& digest : digests) filing_.addDigest(digest);
}

void Comparison::compareReferences() {
  // Blobs whose count is not that of the attachments that use them, messages whose count is not
  // that of their attachments, and attachments whose blob is gone.
  db_.forEachRow(
      "SELECT b.hash AS digest FROM blob b LEFT JOIN (SELECT a.blob_id AS id, COUNT(*) AS n FROM "
      "attachment a JOIN message m ON m.id = a.message_id WHERE m.erased = 0 AND a.blob_id IS NOT "
      "NULL GROUP BY a.blob_id) used ON used.id = b.id WHERE b.refcount <> COALESCE(used.n, 0) "
      "UNION ALL SELECT m.sha256 FROM message m WHERE m.erased = 0 AND m.attachment_count <> "
      "(SELECT "
      "COUNT(*) FROM attachment a WHERE a.message_id = m.id) UNION ALL SELECT COALESCE(m.sha256, "
      "'?') FROM "
      "attachment a LEFT JOIN message m ON m.id = a.message_id WHERE m.id IS NULL OR (a.blob_id IS "
      "NOT NULL AND NOT EXISTS (SELECT 1 FROM blob b WHERE b.id = a.blob_id))",
      {}, [this](const Row& row) {
        references_.addDigest(row.string("digest"));
        return true;
      });
}

void Comparison::comparePacks() {
  const auto rows = archive_.catalog().packs();
  for (const auto& [name, digests] : journal_.sealedPacks()) {
    const auto row = std::ranges::find(rows, name, &PackRow::name);
    // Without write protection a crash may let a pack that was closed be carried on and closed
    // again; with it every closing says the same.
    const bool mayDiffer = !archive_.policy().wormEnforcement;
    const bool isOne =
        mayDiffer || std::ranges::adjacent_find(digests, std::not_equal_to<>()) == digests.end();
    if (!isOne || !isAsSealed(row == rows.end() ? nullptr : &*row, name, digests.back())) {
      packs_.add(name);
    }
  }
}

bool Comparison::isAsSealed(const PackRow* row, const std::string& name,
                            const std::string& sha256) {
  if (row != nullptr && row->sha256) return *row->sha256 == sha256;
  // The catalog does not know that the pack was closed: it was rebuilt, or tampered with, or the
  // pack is being carried on after a crash. The file itself tells the first from the second.
  const auto id = parseInteger(std::string_view(name).substr(0, name.find('.')));
  if (!id || PackStore::packName(*id) != name) return false;
  if (*id == archive_.catalog().currentPackID() && !archive_.policy().wormEnforcement) return true;
  try {
    return archive_.packs().digest(*id) == sha256;
  } catch (const TranslatableError&) {
    return false;
  }
}

void Comparison::compareSeals() {
  const auto seals = archive_.sealer().allSeals();
  for (const auto& [number, recorded] : journal_.seals()) {
    const auto seal = std::ranges::find(seals, number, &ChainSeal::sealNumber);
    const bool agrees =
        seal != seals.end() && std::ranges::all_of(recorded, [&](const RecordedSeal& each) {
          return each.head == seal->chainHead && each.entries == seal->entryCount &&
                 each.messages == seal->messageCount;
        });
    if (!agrees) seals_.add(std::to_string(number));
  }
}

void Comparison::compareHolds() {
  if (journal_.holds().empty()) return;
  struct Held {
    bool isActive;
    std::int64_t messages;
  };
  std::map<std::string, Held> held;
  for (const Row& row : db_.query("SELECT id, released_at IS NULL AS active, (SELECT COUNT(*) FROM "
                                  "message_hold WHERE hold_id = hold.id) AS messages FROM hold")) {
    held[row.string("id")] = {row.boolean("active"), row.integer("messages")};
  }
  for (const auto& [id, recorded] : journal_.holds()) {
    const auto row = held.find(id);
    const bool isRebuilt = journal_.rebuiltAt() > recorded.seq;
    if (row == held.end()) {
      // A rebuild brings back what still holds something.
      if (!isRebuilt || recorded.isActive.value_or(false)) holds_.add(id);
      continue;
    }
    // Messages that arrive later may join; none may leave before the release.
    const bool hasLost =
        recorded.isActive.value_or(false) && !isRebuilt && row->second.messages < recorded.messages;
    if (recorded.isActive.value_or(row->second.isActive) != row->second.isActive || hasLost) {
      holds_.add(id);
    }
  }
}

}  // namespace

HoldingsResult compareHoldings(MailArchive& archive, const JournalRecord& journal,
                               const std::vector<std::string>& misdated) {
  return Comparison(archive, journal).run(misdated);
}

std::vector<std::string> holdingsWords() {
  return {kAgree,  kMissing, kUnrecorded, kErased,     kRevived, kAltered, kClasses,
          kPolicy, kExpiry,  kFiling,     kReferences, kPacks,   kSeals,   kHolds};
}

}  // namespace ambervane
