#ifndef AMBERVANE_STORE_THROUGHPUT_METER_H_
#define AMBERVANE_STORE_THROUGHPUT_METER_H_

#include <cstdint>

#include "base/date.h"

namespace ambervane {

/// How fast messages go by: smoothed over windows of a second, and on average since the start.
class ThroughputMeter {
 public:
  static constexpr double kWindowSeconds = 1.0;
  static constexpr double kSmoothing = 0.4;  ///< weight of the newest window

  explicit ThroughputMeter(Date startedAt = {}) : startedAt_(startedAt), windowStart_(startedAt) {}

  void record(std::int64_t messages, std::int64_t bytes, Date now);
  double messagesPerSecond() const noexcept { return messagesPerSecond_; }
  double bytesPerSecond() const noexcept { return bytesPerSecond_; }
  /// Seconds since the start, never below 0.
  double elapsed(Date now) const noexcept;
  double averageMessagesPerSecond(Date now) const noexcept;
  double averageBytesPerSecond(Date now) const noexcept;

 private:
  Date startedAt_;
  double messagesPerSecond_ = 0;
  double bytesPerSecond_ = 0;
  std::int64_t totalMessages_ = 0;
  std::int64_t totalBytes_ = 0;
  Date windowStart_;
  std::int64_t windowMessages_ = 0;
  std::int64_t windowBytes_ = 0;
  bool hasWindow_ = false;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_THROUGHPUT_METER_H_
