#ifndef AMBERVANE_EVIDENCE_TIMESTAMP_ROUND_H_
#define AMBERVANE_EVIDENCE_TIMESTAMP_ROUND_H_

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "base/date.h"
#include "evidence/timestamp_authority.h"

namespace ambervane {

/// Authorities that could not be reached, and what was said then: without a network, an import that
/// seals often must not wait for each of them every time. Safe from any thread.
class UnreachableAuthorities {
 public:
  static constexpr double kRememberedSeconds = 300;
  /// The one that everything in this process shares.
  static UnreachableAuthorities& ofThisProcess();

  void note(const std::string& url, const std::string& failure, Date now);
  /// What was noted less than `kRememberedSeconds` ago.
  std::optional<std::string> recall(const std::string& url, Date now);

 private:
  struct Failure {
    std::string text;
    Date at;
  };
  std::mutex mutex_;
  std::map<std::string, Failure> failures_;
};

/// What asking around takes from outside.
struct TimestampEnvironment {
  TimestampExchange exchange;
  UnreachableAuthorities* unreachable = &UnreachableAuthorities::ofThisProcess();
};

/// What came of asking around.
struct TimestampOutcome {
  std::optional<TimestampToken> token;
  std::string failure;  ///< without a token: "<authority>: <why>" of each, divided by "; "
};

/// Asks authorities in order for a stamp over a SHA-256 `digest` until one gives it; each may take
/// `timeout` seconds. Never throws but for want of memory.
TimestampOutcome askForTimestamp(const std::vector<std::string>& authorities, BytesView digest,
                                 double timeout, const Clock& clock,
                                 const TimestampEnvironment& environment);

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_TIMESTAMP_ROUND_H_
