#include "store/deflate.h"

#include <zlib.h>

#include <algorithm>
#include <limits>

namespace ambervane {
namespace {

/// No deflate stream yields more than this many bytes for each of its own (a run of 258 bytes takes
/// at least two bits), so the size of the input bounds what is allocated for it.
constexpr std::size_t kMaxExpansion = 1032;
/// How far the promised size is believed before anything has come out: mail rarely shrinks more.
constexpr std::size_t kBelievedExpansion = 8;
/// zlib counts the bytes of one call in 32 bits, and so do the records.
constexpr std::size_t kMaxCallBytes = std::numeric_limits<uInt>::max();

/// zlib's input pointers lack a const; it writes through none of them.
Bytef* input(BytesView bytes) noexcept {
  return reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
}
Bytef* output(Bytes& bytes, std::size_t offset) noexcept {
  return reinterpret_cast<Bytef*>(bytes.data() + offset);
}

/// zlib's working memory (256 KiB for a compressor), allocated once a thread and reset for each
/// record.
class ZlibState {
 public:
  using Function = int (*)(z_stream*);
  ZlibState(Function begin, Function reset, Function end) noexcept
      : begin_(begin), reset_(reset), end_(end) {}
  ~ZlibState() {
    if (begun_) end_(&stream_);
  }
  ZlibState(const ZlibState&) = delete;
  ZlibState& operator=(const ZlibState&) = delete;

  /// At the start of a stream; nothing when zlib got no memory.
  z_stream* fresh() noexcept {
    if (begun_) return reset_(&stream_) == Z_OK ? &stream_ : nullptr;
    begun_ = begin_(&stream_) == Z_OK;
    return begun_ ? &stream_ : nullptr;
  }

 private:
  Function begin_, reset_, end_;
  z_stream stream_{};
  bool begun_ = false;
};

int beginDeflate(z_stream* stream) { return deflateInit(stream, Deflate::kLevel); }
int beginInflate(z_stream* stream) { return inflateInit(stream); }

}  // namespace

std::optional<Bytes> Deflate::compress(BytesView data, BytesView dictionary) {
  thread_local ZlibState state(beginDeflate, ::deflateReset, ::deflateEnd);
  z_stream* const stream = state.fresh();
  if (stream == nullptr || std::max(data.size(), dictionary.size()) > kMaxCallBytes) {
    return std::nullopt;
  }
  if (!dictionary.empty() && ::deflateSetDictionary(stream, input(dictionary),
                                                    static_cast<uInt>(dictionary.size())) != Z_OK) {
    return std::nullopt;
  }
  const std::size_t room = ::deflateBound(stream, static_cast<uLong>(data.size())) + 64;
  if (room > kMaxCallBytes) return std::nullopt;
  Bytes result(room, '\0');
  stream->next_in = input(data);
  stream->avail_in = static_cast<uInt>(data.size());
  stream->next_out = output(result, 0);
  stream->avail_out = static_cast<uInt>(room);
  if (::deflate(stream, Z_FINISH) != Z_STREAM_END) return std::nullopt;
  result.resize(room - stream->avail_out);
  result.shrink_to_fit();
  return result;
}

std::optional<Bytes> Deflate::decompress(BytesView data, BytesView dictionary,
                                         std::size_t expectedSize) {
  thread_local ZlibState state(beginInflate, ::inflateReset, ::inflateEnd);
  z_stream* const stream = state.fresh();
  if (stream == nullptr || std::max(data.size(), dictionary.size()) > kMaxCallBytes) {
    return std::nullopt;
  }
  const std::size_t expected = std::clamp<std::size_t>(expectedSize, 1, kMaxCallBytes);
  const std::size_t limit =
      std::min({expected * kMaxExpectedSizeFactor, kMaxCallBytes, data.size() * kMaxExpansion});

  Bytes result(std::min({expected, limit, data.size() * kBelievedExpansion}), '\0');
  std::size_t filled = 0;
  stream->next_in = input(data);
  stream->avail_in = static_cast<uInt>(data.size());
  for (;;) {
    stream->next_out = output(result, filled);
    stream->avail_out = static_cast<uInt>(result.size() - filled);
    // Z_FINISH spares zlib its copy of the window where one call is enough.
    const int status = ::inflate(stream, Z_FINISH);
    filled = result.size() - stream->avail_out;
    if (status == Z_STREAM_END) break;
    if (status == Z_NEED_DICT && !dictionary.empty() &&
        ::inflateSetDictionary(stream, input(dictionary), static_cast<uInt>(dictionary.size())) ==
            Z_OK) {
      continue;
    }
    // Z_BUF_ERROR tells of a full buffer; with room left it tells of a stream that is cut.
    if (status != Z_BUF_ERROR || stream->avail_out > 0 || filled == limit) return std::nullopt;
    result.resize(std::min(limit, result.size() * 4));
  }
  if (filled == 0) return std::nullopt;
  result.resize(filled);
  return result;
}

std::uint32_t Deflate::crc32(BytesView data) noexcept {
  return static_cast<std::uint32_t>(::crc32_z(0, input(data), data.size()));
}

}  // namespace ambervane
