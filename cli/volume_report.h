#ifndef AMBERVANE_CLI_VOLUME_REPORT_H_
#define AMBERVANE_CLI_VOLUME_REPORT_H_

#include <cstdint>
#include <ostream>
#include <string>

#include "store/throughput_meter.h"

namespace ambervane {

/// The rate of the moment, for a progress line: "120 msg/s, 3.1 MB/s".
std::string rateText(const ThroughputMeter& throughput);

/// The lines of a summary that tell how much went in, what it takes and how fast that was.
/// `bytesOut` is what the packs have grown by.
void reportVolume(std::int64_t bytesIn, std::int64_t bytesOut, const ThroughputMeter& throughput,
                  Date now, std::ostream& out);

}  // namespace ambervane

#endif  // AMBERVANE_CLI_VOLUME_REPORT_H_
