#include "store/codec.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "store/brotli_codec.h"
#include "store/compressibility.h"
#include "store/deflate.h"
#include "store/lzfse.h"
#include "store/xz_codec.h"

namespace ambervane {
namespace {

/// Smaller records are left to deflate: what a second codec saves there is not worth its time.
constexpr std::size_t kLargeRecordBytes = 32768;
/// Smaller records are tried at once; telling first whether it is in vain costs as much.
constexpr std::size_t kDoubtfulBytes = 4096;
/// LZMA is slow, and far ahead only on what compresses well: it is skipped when the codec tried
/// before it leaves more than this share.
constexpr double kMaxShareForLzma = 0.5;

/// A codec worth trying, from the effort and the size at which it is. A later one must be strictly
/// smaller than all before it.
struct Candidate {
  Codec codec;
  CompressionEffort effort;
  std::size_t minimumBytes;
  std::optional<Bytes> (*encode)(BytesView data, BytesView dictionary);
};
constexpr Candidate kCandidates[] = {
    {Codec::deflateDictionary, CompressionEffort::fast, 0, &Deflate::compress},
    {Codec::lzfse, CompressionEffort::balanced, kLargeRecordBytes,
     [](BytesView data, BytesView) { return lzfseEncode(data); }},
    {Codec::brotli, CompressionEffort::smallest, kLargeRecordBytes,
     [](BytesView data, BytesView) { return brotliEncode(data); }},
    {Codec::lzma, CompressionEffort::smallest, kLargeRecordBytes,
     [](BytesView data, BytesView) { return xzEncode(data); }},
};

/// How many bytes a record of `expectedSize` may yield.
std::size_t yieldLimit(std::size_t expectedSize) noexcept {
  constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
  return expectedSize > kMost / Compressor::kMaxExpectedSizeFactor
             ? kMost
             : std::max<std::size_t>(expectedSize, 1) * Compressor::kMaxExpectedSizeFactor;
}

/// A record is never empty, so nothing is a sign of damage.
std::optional<Bytes> unlessEmpty(std::optional<Bytes> content) {
  if (content && content->empty()) content.reset();
  return content;
}

/// The best that is worthwhile; `stored`, with the payload left empty, when none is.
CompressedRecord smallest(BytesView data, BytesView dictionary, CompressionEffort effort) {
  CompressedRecord best;
  best.originalLength = data.size();
  const bool isTried = data.size() >= Compressor::kMinimumBytes &&
                       (data.size() < kDoubtfulBytes || !looksIncompressible(data));
  if (!isTried) return best;
  std::size_t bestSize = data.size();
  double share = 1.0;  // what the last codec that had a result left of the data
  for (const Candidate& candidate : kCandidates) {
    if (effort < candidate.effort || data.size() < candidate.minimumBytes) continue;
    if (candidate.codec == Codec::lzma && share > kMaxShareForLzma) continue;
    std::optional<Bytes> encoded = candidate.encode(data, dictionary);
    if (!encoded || encoded->empty()) continue;
    share = static_cast<double>(encoded->size()) / static_cast<double>(data.size());
    if (encoded->size() >= bestSize) continue;
    bestSize = encoded->size();
    best.payload = *std::move(encoded);
    best.codec = candidate.codec;
  }
  const double limit = static_cast<double>(data.size()) * Compressor::kWorthwhileShare;
  if (static_cast<double>(bestSize) > limit) {
    best.codec = Codec::stored;
    best.payload.clear();
  }
  return best;
}

}  // namespace

std::string_view label(Codec codec) noexcept {
  switch (codec) {
    case Codec::deflateDictionary:
      return "deflate+dictionary";
    case Codec::lzfse:
      return "LZFSE";
    case Codec::lzma:
      return "LZMA";
    case Codec::stored:
      return "stored";
    case Codec::brotli:
      return "Brotli";
  }
  return "";
}

std::string_view rawValue(CompressionEffort effort) noexcept {
  switch (effort) {
    case CompressionEffort::fast:
      return "fast";
    case CompressionEffort::balanced:
      return "balanced";
    case CompressionEffort::smallest:
      return "smallest";
  }
  return "";
}

std::optional<CompressionEffort> compressionEffortFromRawValue(std::string_view text) noexcept {
  for (const auto effort :
       {CompressionEffort::fast, CompressionEffort::balanced, CompressionEffort::smallest}) {
    if (rawValue(effort) == text) return effort;
  }
  return std::nullopt;
}

std::string_view label(CompressionEffort effort) noexcept {
  switch (effort) {
    case CompressionEffort::fast:
      return "Fast — quickest to collect";
    case CompressionEffort::balanced:
      return "Balanced — default, and quick to read";
    case CompressionEffort::smallest:
      return "Smallest — for archives kept rather than read";
  }
  return "";
}

std::string_view explanation(CompressionEffort effort) noexcept {
  switch (effort) {
    case CompressionEffort::fast:
      return "One codec, no comparison. Collecting is as quick as the connection allows and the "
             "archive is a few per cent larger than it need be.";
    case CompressionEffort::balanced:
      return "Tries a second codec on records large enough for it to matter, and reads as fast as "
             "Fast does. Right for a mailbox somebody still works in.";
    case CompressionEffort::smallest:
      return "Compresses messages together rather than one at a time, in blocks of four megabytes, "
             "with LZMA — the algorithm behind xz. Mail repeats itself between messages far more "
             "than within one, and a message compressed on its own cannot use any of that: "
             "measured "
             "over a mail-shaped corpus this reaches a fifth of the uncompressed size where one "
             "record per message reaches a bit under a third. The cost is paid on reading: opening "
             "a message decompresses its whole block, about a tenth of a second, for as long as "
             "the "
             "archive exists. Right for a mailbox archived because it must be and opened once a "
             "decade; wrong for one in daily use. An archive that offers erasure under GDPR Art. "
             "17 "
             "keeps one record per message whatever this says, because a key can only be destroyed "
             "for a message that was stored on its own.";
  }
  return "";
}

CompressedRecord Compressor::compress(BytesView data, BytesView dictionary,
                                      CompressionEffort effort) {
  CompressedRecord record = smallest(data, dictionary, effort);
  if (record.codec == Codec::stored) record.payload = data;
  return record;
}

CompressedRecord Compressor::compressOwned(Bytes data, BytesView dictionary,
                                           CompressionEffort effort) {
  CompressedRecord record = smallest(data, dictionary, effort);
  if (record.codec == Codec::stored) record.payload = std::move(data);
  return record;
}

std::optional<Bytes> Compressor::decompress(BytesView payload, Codec codec, BytesView dictionary,
                                            std::size_t expectedSize) {
  switch (codec) {
    case Codec::stored:
      return Bytes(payload);
    case Codec::deflateDictionary:
      if (payload.empty()) return Bytes();
      return Deflate::decompress(payload, dictionary, expectedSize);
    case Codec::lzfse:
      return unlessEmpty(lzfseDecode(payload, yieldLimit(expectedSize)));
    case Codec::lzma:
      return unlessEmpty(xzDecode(payload, yieldLimit(expectedSize)));
    case Codec::brotli:
      return unlessEmpty(brotliDecode(payload, yieldLimit(expectedSize)));
  }
  return std::nullopt;
}

}  // namespace ambervane
