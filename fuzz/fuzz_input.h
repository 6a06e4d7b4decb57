#ifndef AMBERVANE_FUZZ_FUZZ_INPUT_H_
#define AMBERVANE_FUZZ_FUZZ_INPUT_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "base/text.h"

namespace ambervane {

inline void require(bool condition) {
  if (!condition) std::abort();
}

inline void requireUtf8(std::string_view text) { require(isValidUtf8(text)); }

inline std::string_view fuzzInput(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// The first line of an input, and what lies behind it.
inline std::pair<std::string_view, std::string_view> firstLine(std::string_view input) {
  const std::size_t end = input.find('\n');
  return {input.substr(0, end), end == input.npos ? std::string_view() : input.substr(end + 1)};
}

}  // namespace ambervane

#endif  // AMBERVANE_FUZZ_FUZZ_INPUT_H_
