#include "fuzz/fuzz_input.h"
#include "mailcore/html_text.h"
#include "mailcore/preview.h"

/// Any bytes as a page.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  const std::string_view html = fuzzInput(data, size);
  const std::string text = HTMLText::strip(html);
  requireUtf8(text);
  // One byte may become U+FFFD, which has three.
  require(text.size() <= 3 * html.size());
  require(text.find("\n\n") == text.npos && text.find("  ") == text.npos);
  constexpr std::size_t kLimit = 40;
  const std::string preview = collapsedForPreview(text, kLimit);
  requireUtf8(preview);
  require(characterCount(preview) <= kLimit);
  return 0;
}
