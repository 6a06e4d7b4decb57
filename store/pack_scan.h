#ifndef AMBERVANE_STORE_PACK_SCAN_H_
#define AMBERVANE_STORE_PACK_SCAN_H_

#include <cstddef>
#include <cstdint>
#include <functional>

#include "base/bytes.h"
#include "store/pack_format.h"

namespace ambervane {

/// A record found by its own bytes.
struct ScannedRecord {
  std::size_t offset = 0;  ///< of its header in the pack
  RecordFlags flags;
  std::uint16_t dictionaryID = 0;
  std::uint32_t originalLength = 0;  ///< as the header says; not covered by the checksum
  std::size_t storedLength = 0;      ///< of its payload
};

/// What a scan may spend on checksums that turn out wrong, in sizes of the pack.
inline constexpr std::size_t kMostWastedScans = 8;

/// Finds the records of a pack from its bytes alone, in order: behind damage it goes on at the next
/// magic whose record has the right checksum. A record where `isKnown` says so is passed over
/// unread. Never fails; linear in the size.
void scanPack(BytesView pack, const std::function<bool(std::size_t offset)>& isKnown,
              const std::function<void(const ScannedRecord&)>& found);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_PACK_SCAN_H_
