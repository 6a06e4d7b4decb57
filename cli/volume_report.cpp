#include "cli/volume_report.h"

#include <fmt/format.h>

#include "base/text.h"

namespace ambervane {

std::string rateText(const ThroughputMeter& throughput) {
  return fmt::format("{:.0f} msg/s, {}/s", throughput.messagesPerSecond(),
                     humanBytes(static_cast<std::int64_t>(throughput.bytesPerSecond())));
}

void reportVolume(std::int64_t bytesIn, std::int64_t bytesOut, const ThroughputMeter& throughput,
                  Date now, std::ostream& out) {
  const double share =
      bytesIn == 0 ? 100.0 : 100.0 * static_cast<double>(bytesOut) / static_cast<double>(bytesIn);
  out << "Input      : " << humanBytes(bytesIn) << "\n"
      << fmt::format("Stored size: {} ({:.1f}% of input)\n", humanBytes(bytesOut), share);
  const double seconds = throughput.elapsed(now);
  if (seconds <= 0) return;
  out << fmt::format("Speed      : {:.0f} msg/s, {}/s average over {:.0f} s\n",
                     throughput.averageMessagesPerSecond(now),
                     humanBytes(static_cast<std::int64_t>(throughput.averageBytesPerSecond(now))),
                     seconds);
}

}  // namespace ambervane
