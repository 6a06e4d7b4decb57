#include "store/throughput_meter.h"

#include <algorithm>

namespace ambervane {

void ThroughputMeter::record(std::int64_t messages, std::int64_t bytes, Date now) {
  totalMessages_ += messages;
  totalBytes_ += bytes;
  windowMessages_ += messages;
  windowBytes_ += bytes;
  const double seconds = now.seconds - windowStart_.seconds;
  if (seconds < kWindowSeconds) return;
  const auto smooth = [this, seconds](double& rate, std::int64_t amount) {
    const double window = static_cast<double>(amount) / seconds;
    rate = hasWindow_ ? window * kSmoothing + rate * (1 - kSmoothing) : window;
  };
  smooth(messagesPerSecond_, windowMessages_);
  smooth(bytesPerSecond_, windowBytes_);
  hasWindow_ = true;
  windowStart_ = now;
  windowMessages_ = 0;
  windowBytes_ = 0;
}

double ThroughputMeter::elapsed(Date now) const noexcept {
  return std::max(now.seconds - startedAt_.seconds, 0.0);
}

double ThroughputMeter::averageMessagesPerSecond(Date now) const noexcept {
  return elapsed(now) > 0 ? static_cast<double>(totalMessages_) / elapsed(now) : 0;
}

double ThroughputMeter::averageBytesPerSecond(Date now) const noexcept {
  return elapsed(now) > 0 ? static_cast<double>(totalBytes_) / elapsed(now) : 0;
}

}  // namespace ambervane
