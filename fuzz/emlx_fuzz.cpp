#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "mailformats/emlx.h"

/// Reads the input as a message file of Apple Mail, and as the property list behind a message.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ambervane::BytesView file(reinterpret_cast<const char*>(data), size);
  if (const auto parsed = ambervane::EMLX::parse(file)) {
    const auto& [begin, end] = parsed->message;
    if (begin > end || end > size) std::abort();
    if (parsed->plist.empty() && !parsed->flags.empty()) std::abort();
  }
  ambervane::parsePropertyList(file);
  return 0;
}
