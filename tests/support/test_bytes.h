#ifndef AMBERVANE_TESTS_SUPPORT_TEST_BYTES_H_
#define AMBERVANE_TESTS_SUPPORT_TEST_BYTES_H_

#include <cstdint>
#include <random>
#include <string_view>

#include "base/bytes.h"

namespace ambervane {

/// `size` random bytes below `values`, the same for the same seed; of all 256 they do not compress.
inline Bytes noise(std::size_t size, std::uint32_t seed = 1, unsigned values = 256) {
  std::mt19937 random(seed);
  Bytes bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(random() % values);
  return bytes;
}

/// The bytes that pairs of hexadecimal digits stand for; throws where there are other characters.
inline Bytes unhex(std::string_view digits) { return hexDecode(digits).value(); }

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_TEST_BYTES_H_
