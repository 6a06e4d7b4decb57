#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "mailformats/mbox_format.h"

/// Reads the input as an mbox file in every variant.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using ambervane::MboxVariant;
  const ambervane::BytesView file(reinterpret_cast<const char*>(data), size);
  for (const auto variant :
       {MboxVariant::detected, MboxVariant::mboxo, MboxVariant::mboxrd, MboxVariant::mboxcl2}) {
    std::size_t start = ambervane::nextMboxStart(file, 0);
    while (start != ambervane::BytesView::npos) {
      const std::size_t next = ambervane::nextMboxStart(file, start + 1);
      const auto segment = file.substr(start, next - start);
      // Nothing is ever added to a message.
      if (ambervane::readMboxSegment(segment, variant).raw.size() > segment.size()) std::abort();
      start = next;
    }
  }
  return 0;
}
