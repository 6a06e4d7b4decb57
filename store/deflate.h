#ifndef AMBERVANE_STORE_DEFLATE_H_
#define AMBERVANE_STORE_DEFLATE_H_

#include <cstddef>
#include <cstdint>
#include <optional>

#include "base/bytes.h"

namespace ambervane {

/// The thin layer over zlib: the zlib format (RFC 1950) with a preset dictionary, and the CRC-32 of
/// pack records. Safe from any thread; each thread keeps its compressor's state for the next call.
class Deflate {
 public:
  static constexpr int kLevel = 9;
  /// A stream may yield at most this many times the size its record promises.
  static constexpr std::size_t kMaxExpectedSizeFactor = 16;

  /// One whole zlib stream at `kLevel`. An empty `dictionary` means none. Absent when zlib refuses:
  /// no memory, or close to 4 GiB of data and more.
  static std::optional<Bytes> compress(BytesView data, BytesView dictionary);

  /// The content of the zlib stream `data` starts with; bytes behind the stream are ignored. Absent
  /// for a damaged or cut stream, for one that asks for a dictionary other than `dictionary`, and
  /// for one that yields nothing or more than `kMaxExpectedSizeFactor` times `expectedSize` (taken
  /// as at least 1). Allocates in step with what the stream yields.
  static std::optional<Bytes> decompress(BytesView data, BytesView dictionary,
                                         std::size_t expectedSize);

  /// zlib's CRC-32 (polynomial 0xEDB88320, as RFC 1952 section 8); 0 for no bytes.
  static std::uint32_t crc32(BytesView data) noexcept;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_DEFLATE_H_
