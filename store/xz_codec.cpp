#include "store/xz_codec.h"

#include <lzma.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>

namespace ambervane {
namespace {

constexpr std::uint32_t kPreset = 6;
constexpr std::uint64_t kMaxDecoderMemory = std::uint64_t{512} << 20;
constexpr std::size_t kFirstBufferBytes = std::size_t{64} << 10;

const std::uint8_t* input(BytesView bytes) noexcept {
  return reinterpret_cast<const std::uint8_t*>(bytes.data());
}
std::uint8_t* output(Bytes& bytes, std::size_t offset) noexcept {
  return reinterpret_cast<std::uint8_t*>(bytes.data() + offset);
}

class XzDecoder {
 public:
  XzDecoder() noexcept {
    begun_ = ::lzma_stream_decoder(&stream_, kMaxDecoderMemory, LZMA_CONCATENATED) == LZMA_OK;
  }
  ~XzDecoder() { ::lzma_end(&stream_); }
  XzDecoder(const XzDecoder&) = delete;
  XzDecoder& operator=(const XzDecoder&) = delete;

  lzma_stream* stream() noexcept { return begun_ ? &stream_ : nullptr; }

 private:
  lzma_stream stream_ = LZMA_STREAM_INIT;
  bool begun_ = false;
};

}  // namespace

std::optional<Bytes> xzEncode(BytesView data) {
  if (data.empty()) return std::nullopt;
  lzma_options_lzma options;
  if (::lzma_lzma_preset(&options, kPreset)) return std::nullopt;
  // A dictionary larger than the data finds nothing more, and costs memory that must be cleared.
  const std::size_t needed = std::max<std::size_t>(data.size(), LZMA_DICT_SIZE_MIN);
  if (needed < options.dict_size) {
    options.dict_size = std::bit_ceil(static_cast<std::uint32_t>(needed));
  }
  const lzma_filter filters[] = {{LZMA_FILTER_LZMA2, &options}, {LZMA_VLI_UNKNOWN, nullptr}};
  Bytes result(data.size() - 1, '\0');
  std::size_t filled = 0;
  if (::lzma_stream_buffer_encode(const_cast<lzma_filter*>(filters), LZMA_CHECK_CRC32, nullptr,
                                  input(data), data.size(), output(result, 0), &filled,
                                  result.size()) != LZMA_OK) {
    return std::nullopt;
  }
  result.resize(filled);
  result.shrink_to_fit();
  return result;
}

std::optional<Bytes> xzDecode(BytesView file, std::size_t limit) {
  XzDecoder decoder;
  lzma_stream* const stream = decoder.stream();
  if (stream == nullptr) return std::nullopt;
  stream->next_in = input(file);
  stream->avail_in = file.size();
  // One byte more than allowed tells content that is too long from content that just fits.
  const std::size_t room = limit == std::numeric_limits<std::size_t>::max() ? limit : limit + 1;
  Bytes result(std::min(room, kFirstBufferBytes), '\0');
  std::size_t filled = 0;
  for (;;) {
    stream->next_out = output(result, filled);
    stream->avail_out = result.size() - filled;
    const lzma_ret status = ::lzma_code(stream, LZMA_FINISH);
    filled = result.size() - stream->avail_out;
    if (filled > limit) return std::nullopt;
    if (status == LZMA_STREAM_END) break;
    // With room left in the buffer, what has stopped the decoder is the end of a cut file.
    if (status != LZMA_OK && status != LZMA_BUF_ERROR) return std::nullopt;
    if (stream->avail_out > 0) return std::nullopt;
    result.resize(std::min(room, result.size() * 2));
  }
  result.resize(filled);
  return result;
}

}  // namespace ambervane
