#include "compliance/gap_report.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "base/calendar.h"
#include "base/text.h"
#include "compliance/gap_arithmetic.h"
#include "store/catalog.h"

namespace ambervane {
namespace {

/// Of a sent folder's messages, the share one sender needs to be the archive's own.
constexpr double kOwnShare = 0.6;

Coverage coverageOf(SQLiteDatabase& db, const DayCalendar& calendar) {
  Coverage coverage;
  db.forEachRow(
      "SELECT MIN(sent_at) AS first, MAX(sent_at) AS last, COUNT(*) AS n FROM message WHERE erased "
      "= 0 AND sent_at IS NOT NULL",
      {}, [&coverage](const Row& row) {
        coverage.firstMessage = row.date("first");
        coverage.lastMessage = row.date("last");
        coverage.messages = row.integer("n");
        return false;
      });
  if (!coverage.firstMessage || !coverage.lastMessage) return coverage;
  coverage.daysCovered = std::int64_t{calendar.dayOf(*coverage.lastMessage)} -
                         calendar.dayOf(*coverage.firstMessage) + 1;
  return coverage;
}

/// One message of a mailbox in the order of its UIDs.
struct Numbered {
  std::int64_t folder = 0;
  std::int64_t uid = 0;
  std::int64_t message = 0;
};

UIDGap gapBetween(SQLiteDatabase& db, const Numbered& before, const Numbered& behind) {
  UIDGap gap;
  gap.from = before.uid + 1;
  gap.to = behind.uid - 1;
  db.forEachRow(
      "SELECT a.name AS account, f.path AS folder, (SELECT sent_at FROM message WHERE id = ?1) AS "
      "before, (SELECT sent_at FROM message WHERE id = ?2) AS behind FROM folder f JOIN account a "
      "ON a.id = f.account_id WHERE f.id = ?3",
      {before.message, behind.message, behind.folder}, [&gap](const Row& row) {
        gap.account = row.string("account");
        gap.folder = row.string("folder");
        gap.previousDate = row.date("before");
        gap.nextDate = row.date("behind");
        return false;
      });
  return gap;
}

/// The walk takes numbers alone, which an index gives in their order; what a gap is called is
/// looked up behind it.
std::vector<UIDGap> uidGaps(SQLiteDatabase& db, std::size_t limit) {
  std::vector<std::pair<Numbered, Numbered>> holes;
  Numbered before;
  db.forEachRow(
      "SELECT folder_id, uid, message_id FROM message_folder WHERE uid IS NOT NULL AND message_id "
      "NOT IN (SELECT id FROM message WHERE erased = 1) ORDER BY folder_id, uid",
      {}, [&](const Row& row) {
        const Numbered next{row.integer("folder_id"), row.integer("uid"),
                            row.integer("message_id")};
        if (next.folder == before.folder && before.uid < next.uid && before.uid + 1 < next.uid) {
          if (holes.size() >= limit) return false;
          holes.emplace_back(before, next);
        }
        before = next;
        return true;
      });
  std::vector<UIDGap> gaps;
  for (const auto& [first, second] : holes) gaps.push_back(gapBetween(db, first, second));
  return gaps;
}

std::vector<DanglingReference> danglingReferences(SQLiteDatabase& db, std::size_t limit) {
  std::vector<DanglingReference> dangling;
  db.forEachRow(
      "SELECT m.id AS id, m.subject AS subject, m.sent_at AS sent_at, m.in_reply_to AS parent FROM "
      "message m WHERE m.erased = 0 AND m.in_reply_to IS NOT NULL AND m.in_reply_to <> '' AND NOT "
      "EXISTS (SELECT 1 FROM message p WHERE p.message_id = m.in_reply_to AND p.erased = 0) ORDER "
      "BY m.sent_at DESC LIMIT ?",
      {limit}, [&dangling](const Row& row) {
        dangling.push_back(
            {row.string("parent"), row.integer("id"), row.string("subject"), row.date("sent_at")});
        return true;
      });
  return dangling;
}

/// Who sends what lies in folders for sent mail.
std::vector<std::string> ownAddresses(SQLiteDatabase& db) {
  std::set<std::string> own;
  db.forEachRow(
      "SELECT sender, n, total FROM (SELECT mf.folder_id AS folder, LOWER(m.from_addr) AS sender, "
      "COUNT(*) AS n, SUM(COUNT(*)) OVER (PARTITION BY mf.folder_id) AS total FROM folder f JOIN "
      "message_folder mf ON mf.folder_id = f.id JOIN message m ON m.id = mf.message_id WHERE "
      "m.erased = 0 AND (LOWER(f.path) LIKE '%sent%' OR LOWER(f.path) LIKE '%gesendet%' OR "
      "LOWER(f.path) LIKE '%envoy%' OR LOWER(f.path) LIKE '%inviat%' OR LOWER(f.path) LIKE "
      "'%enviad%') GROUP BY mf.folder_id, LOWER(m.from_addr)) WHERE instr(sender, '@') > 0",
      {}, [&own](const Row& row) {
        const auto share =
            static_cast<double>(row.integer("n")) / static_cast<double>(row.integer("total"));
        if (share >= kOwnShare) own.insert(row.string("sender"));
        return true;
      });
  return {own.begin(), own.end()};
}

/// What one walk over all dated messages gives.
struct Tallies {
  DayCounts days;
  std::map<std::string, MonthCounts> months;
};

class Walk {
 public:
  Walk(SQLiteDatabase& db, const DayCalendar& calendar, GapReport& report)
      : db_(db),
        calendar_(calendar),
        report_(report),
        own_(report.direction.ownAddresses.begin(), report.direction.ownAddresses.end()) {}

  Tallies run() {
    db_.forEachRow(
        "SELECT sent_at, LOWER(from_addr) AS sender FROM message WHERE erased = 0 AND sent_at IS "
        "NOT NULL",
        {}, [this](const Row& row) {
          add(row);
          return true;
        });
    report_.coverage.daysWithMail = static_cast<std::int64_t>(daysInUtc_.size());
    for (const auto& [day, counts] : directions_) {
      MonthCounts& month = tallies_.months[monthText(day)];
      month.incoming += counts.incoming;
      month.outgoing += counts.outgoing;
    }
    return std::move(tallies_);
  }

 private:
  void add(const Row& row) {
    const Date sent = row.date("sent_at").value_or(Date{});
    const DayNumber day = calendar_.dayOf(sent);
    ++tallies_.days[day];
    daysInUtc_.insert(std::floor(sent.seconds / kSecondsPerDay));
    if (!own_.empty()) addDirection(day, row.optionalString("sender"));
  }

  void addDirection(DayNumber day, const std::optional<std::string>& sender) {
    MonthCounts& counts = directions_[day];
    DirectionSummary& sum = report_.direction;
    if (!sender || sender->empty()) {
      ++sum.undetermined;
    } else if (own_.contains(*sender)) {
      ++sum.outgoing;
      ++counts.outgoing;
    } else {
      ++sum.incoming;
      ++counts.incoming;
    }
  }

  SQLiteDatabase& db_;
  const DayCalendar& calendar_;
  GapReport& report_;
  const std::unordered_set<std::string> own_;
  Tallies tallies_;
  std::unordered_set<double> daysInUtc_;
  std::map<DayNumber, MonthCounts> directions_;
};

std::map<std::string, DayCounts> daysByAccount(SQLiteDatabase& db, const DayCalendar& calendar) {
  std::map<std::string, DayCounts> accounts;
  std::map<std::int64_t, DayCounts*> byID;
  for (const Row& row : db.query("SELECT id, name FROM account")) {
    byID[row.integer("id")] = &accounts[row.string("name")];
  }
  if (accounts.size() < 2) return accounts;
  db.forEachRow(
      "SELECT f.account_id AS account_id, m.sent_at AS sent_at FROM message m JOIN message_folder "
      "mf ON mf.message_id = m.id JOIN folder f ON f.id = mf.folder_id WHERE m.erased = 0 AND "
      "m.sent_at IS NOT NULL",
      {}, [&](const Row& row) {
        const auto account = byID.find(row.integer("account_id"));
        const auto sent = row.date("sent_at");
        if (account != byID.end() && sent) ++(*account->second)[calendar.dayOf(*sent)];
        return true;
      });
  return accounts;
}

}  // namespace

GapReport findGaps(Catalog& catalog, const GapOptions& options) {
  SQLiteDatabase& db = catalog.database();
  GapReport report;
  report.coverage = coverageOf(db, options.calendar);
  if (report.coverage.messages == 0) return report;
  report.uidGaps = uidGaps(db, options.maximumFindings);
  report.danglingReferences = danglingReferences(db, options.maximumFindings);
  report.direction.ownAddresses = ownAddresses(db);
  const Tallies tallies = Walk(db, options.calendar, report).run();
  const WeekdayBaseline baseline = weekdayBaseline(tallies.days);
  report.quietRuns = quietRuns(tallies.days, baseline, options);
  report.volumeAnomalies = volumeAnomalies(tallies.days, baseline, options);
  report.accountSilences = accountSilences(daysByAccount(db, options.calendar), options);
  if (report.direction.ownAddresses.empty()) {
    report.direction.undetermined = db.count("SELECT COUNT(*) FROM message WHERE erased = 0");
  } else {
    report.directionAnomalies = directionAnomalies(tallies.months, options);
  }
  return report;
}

}  // namespace ambervane
