#ifndef AMBERVANE_STORE_JOURNAL_ARRIVALS_H_
#define AMBERVANE_STORE_JOURNAL_ARRIVALS_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/digest.h"
#include "evidence/audit_journal.h"

namespace ambervane {

/// What the journal said of one message when it was taken in the last time. Small, because there
/// are millions. Texts are numbers for `JournalArrivals::text`.
struct JournalArrival {
  RawDigest digest{};
  std::int64_t seq = 0;
  std::int64_t id = 0;  ///< of its row; 0 when unknown, or when another message has had it since
  double seconds = 0;
  std::int32_t ofClass = 0;
  std::int32_t origin = 0;
  std::int32_t originSource = 0;
};

/// What of a message only the journal remembers once the catalog is lost: the number of its row,
/// which its key is filed under, and when and how it came. Read in one walk; afterwards any thread
/// may ask.
class JournalArrivals {
 public:
  explicit JournalArrivals(const AuditJournal& journal);

  /// Null for a message the journal does not know.
  const JournalArrival* find(const RawDigest& digest) const noexcept;
  /// One for each message, by digest.
  const std::vector<JournalArrival>& all() const noexcept { return arrivals_; }
  const std::string& text(std::int32_t number) const {
    return texts_[static_cast<std::size_t>(number)];
  }
  /// The highest number a row ever had, 0 for none.
  std::int64_t highestID() const noexcept { return highestID_; }

 private:
  void take(const AuditEntry& entry);
  std::int32_t numberOf(const AuditEntry& entry, const char* detail);
  void keepLastOfEachDigest();
  void keepLastOfEachID();

  std::vector<JournalArrival> arrivals_;
  std::vector<std::string> texts_{""};
  std::map<std::string, std::int32_t, std::less<>> textNumbers_{{"", 0}};
  std::int64_t highestID_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_JOURNAL_ARRIVALS_H_
