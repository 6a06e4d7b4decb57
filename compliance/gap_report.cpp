#include "compliance/gap_report.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "base/text.h"
#include "compliance/gap_arithmetic.h"
#include "store/catalog.h"

namespace ambervane {
namespace {

/// Of a sent folder's messages, the share one sender needs to be the archive's own.
constexpr double kOwnShare = 0.6;
constexpr double kSecondsPerDay = 86'400;

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

/// The walk over neighbours is SQLite's: it hands out only the holes.
std::vector<UIDGap> uidGaps(SQLiteDatabase& db, std::size_t limit) {
  std::vector<UIDGap> gaps;
  db.forEachRow(
      "SELECT a.name AS account, f.path AS folder, w.before AS before, w.uid AS uid, "
      "w.before_date AS before_date, w.sent_at AS sent_at FROM (SELECT mf.folder_id AS folder_id, "
      "mf.uid AS uid, m.sent_at AS sent_at, LAG(mf.uid) OVER byUid AS before, LAG(m.sent_at) OVER "
      "byUid AS before_date FROM message_folder mf JOIN message m ON m.id = mf.message_id WHERE "
      "mf.uid IS NOT NULL AND m.erased = 0 WINDOW byUid AS (PARTITION BY mf.folder_id ORDER BY "
      "mf.uid)) w JOIN folder f ON f.id = w.folder_id JOIN account a ON a.id = f.account_id WHERE "
      "w.before < w.uid - 1 ORDER BY w.folder_id, w.uid LIMIT ?",
      {limit}, [&gaps](const Row& row) {
        gaps.push_back({row.string("account"), row.string("folder"), row.integer("before") + 1,
                        row.integer("uid") - 1, row.date("before_date"), row.date("sent_at")});
        return true;
      });
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
