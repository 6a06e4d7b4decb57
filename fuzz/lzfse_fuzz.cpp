#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "store/lzfse.h"

// The first byte picks the direction: a hostile stream, or content that must come back.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  if (size == 0) return 0;
  const BytesView input(reinterpret_cast<const char*>(data) + 1, size - 1);
  constexpr std::size_t kLimit = std::size_t{1} << 20;
  if (data[0] % 2 == 0) {
    const auto content = lzfseDecode(input, kLimit);
    if (content && content->size() > kLimit) std::abort();
  } else if (const auto stream = lzfseEncode(input)) {
    if (stream->size() >= input.size() || lzfseDecode(*stream, input.size()) != input) std::abort();
  }
  return 0;
}
