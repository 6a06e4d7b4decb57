#include "store/brotli_codec.h"

#include <brotli/decode.h>
#include <brotli/encode.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>

namespace ambervane {
namespace {

/// From 10 on it takes two to three times as long as LZMA and is not smaller; the window of 4 MiB
/// holds nearly every record whole.
constexpr int kQuality = 9;
constexpr int kWindowBits = 22;
constexpr std::size_t kFirstBufferBytes = std::size_t{64} << 10;

struct DestroyDecoder {
  void operator()(BrotliDecoderState* state) const noexcept {
    ::BrotliDecoderDestroyInstance(state);
  }
};

}  // namespace

std::optional<Bytes> brotliEncode(BytesView data) {
  if (data.empty()) return std::nullopt;
  Bytes result(data.size() - 1, '\0');
  std::size_t size = result.size();
  if (::BrotliEncoderCompress(kQuality, kWindowBits, BROTLI_MODE_GENERIC, data.size(),
                              reinterpret_cast<const std::uint8_t*>(data.data()), &size,
                              reinterpret_cast<std::uint8_t*>(result.data())) != BROTLI_TRUE) {
    return std::nullopt;
  }
  result.resize(size);
  result.shrink_to_fit();
  return result;
}

std::optional<Bytes> brotliDecode(BytesView stream, std::size_t limit) {
  const std::unique_ptr<BrotliDecoderState, DestroyDecoder> state(
      ::BrotliDecoderCreateInstance(nullptr, nullptr, nullptr));
  if (state == nullptr) return std::nullopt;
  const auto* next = reinterpret_cast<const std::uint8_t*>(stream.data());
  std::size_t left = stream.size();
  // One byte more than allowed tells content that is too long from content that just fits.
  const std::size_t room = limit == std::numeric_limits<std::size_t>::max() ? limit : limit + 1;
  Bytes result(std::min(room, kFirstBufferBytes), '\0');
  std::size_t filled = 0;
  for (;;) {
    auto* out = reinterpret_cast<std::uint8_t*>(result.data() + filled);
    std::size_t free = result.size() - filled;
    const BrotliDecoderResult status =
        ::BrotliDecoderDecompressStream(state.get(), &left, &next, &free, &out, nullptr);
    filled = result.size() - free;
    if (filled > limit) return std::nullopt;
    if (status == BROTLI_DECODER_RESULT_SUCCESS) break;
    if (status != BROTLI_DECODER_RESULT_NEEDS_MORE_OUTPUT) return std::nullopt;
    result.resize(std::min(room, result.size() * 2));
  }
  if (left > 0) return std::nullopt;
  result.resize(filled);
  return result;
}

}  // namespace ambervane
