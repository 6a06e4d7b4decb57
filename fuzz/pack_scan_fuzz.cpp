#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "store/pack_scan.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  const BytesView pack(reinterpret_cast<const char*>(data), size);
  std::size_t end = kPackHeaderBytes;
  scanPack(
      pack, [](std::size_t offset) { return offset % 7 == 3; },
      [&](const ScannedRecord& record) {
        // Records do not overlap and lie inside the pack.
        if (record.offset < end || record.storedLength > size) std::abort();
        end = record.offset + kRecordHeaderBytes + record.storedLength;
        if (end > size) std::abort();
      });
  return 0;
}
