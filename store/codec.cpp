#include "store/codec.h"

#include <utility>

#include "store/deflate.h"

namespace ambervane {
namespace {

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
};

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
  CompressedRecord best;
  best.originalLength = data.size();
  std::size_t bestSize = data.size();
  if (data.size() >= kMinimumBytes) {
    for (const Candidate& candidate : kCandidates) {
      if (effort < candidate.effort || data.size() < candidate.minimumBytes) continue;
      std::optional<Bytes> encoded = candidate.encode(data, dictionary);
      if (!encoded || encoded->empty() || encoded->size() >= bestSize) continue;
      bestSize = encoded->size();
      best.payload = *std::move(encoded);
      best.codec = candidate.codec;
    }
  }
  const double limit = static_cast<double>(data.size()) * kWorthwhileShare;
  if (best.codec == Codec::stored || static_cast<double>(bestSize) > limit) {
    best.codec = Codec::stored;
    best.payload = data;
  }
  return best;
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
    case Codec::lzma:
    case Codec::brotli:
      return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace ambervane
