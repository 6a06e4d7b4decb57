#include "fuzz/fuzz_input.h"
#include "mailcore/charset.h"

/// The first line is a label, the rest is text under it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  const auto [label, text] = firstLine(fuzzInput(data, size));
  const std::string decoded = Charset::decode(text, repairedUtf8(label));
  requireUtf8(decoded);
  require(text.empty() == decoded.empty());
  require(!isValidUtf8(text) || Charset::decodeUnlabelled(text) == text);
  return 0;
}
