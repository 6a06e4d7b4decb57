#ifndef AMBERVANE_STORE_CODEC_H_
#define AMBERVANE_STORE_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/bytes.h"
#include "store/deflate.h"

namespace ambervane {

/// How a record's payload is compressed; the numbers stand in the flags of records on disk.
enum class Codec : std::uint8_t {
  deflateDictionary = 0,  ///< zlib format with a preset dictionary
  lzfse = 1,              ///< blocks of docs/format/lzfse.md
  lzma = 2,               ///< an `.xz` file
  stored = 3,             ///< as it is
  brotli = 4,             ///< a stream of RFC 7932
};
/// For people: "deflate+dictionary".
std::string_view label(Codec codec) noexcept;

/// What an archive spends on compression; chosen when it is created. In rising order.
enum class CompressionEffort { fast, balanced, smallest };
/// "fast", "balanced", "smallest": the word in the manifest and on the command line.
std::string_view rawValue(CompressionEffort effort) noexcept;
std::optional<CompressionEffort> compressionEffortFromRawValue(std::string_view text) noexcept;
/// English, and the key to translations.
std::string_view label(CompressionEffort effort) noexcept;
std::string_view explanation(CompressionEffort effort) noexcept;

struct CompressedRecord {
  Bytes payload;
  Codec codec = Codec::stored;
  std::size_t originalLength = 0;  ///< bytes before compression
};

/// Picks the codec of each record. All functions are safe from any thread.
class Compressor {
 public:
  /// Below this many bytes a record is stored as it is.
  static constexpr std::size_t kMinimumBytes = 128;
  /// A result above this share of the input is not worth a decompression on every read.
  static constexpr double kWorthwhileShare = 0.97;
  /// A payload may yield at most this many times the size its record promises.
  static constexpr std::size_t kMaxExpectedSizeFactor = Deflate::kMaxExpectedSizeFactor;

  /// `data` by the codec that makes it smallest among those `effort` allows at this size, or
  /// stored. `dictionary` is the archive's active one; empty means none.
  static CompressedRecord compress(BytesView data, BytesView dictionary, CompressionEffort effort);
  /// The same for bytes the caller gives up: what is stored as it is, is not copied.
  static CompressedRecord compressOwned(Bytes data, BytesView dictionary, CompressionEffort effort);

  /// The bytes before compression. `dictionary` is the one the record names; empty means none.
  /// `expectedSize` is the record's original length and need not be true: memory follows what the
  /// payload yields. Absent for damaged bytes, a wrong dictionary, and a result above
  /// `kMaxExpectedSizeFactor` times `expectedSize` (taken as at least 1).
  static std::optional<Bytes> decompress(BytesView payload, Codec codec, BytesView dictionary,
                                         std::size_t expectedSize);
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_CODEC_H_
