#include "mailcore/preview.h"

#include <algorithm>

#include "base/text.h"

namespace ambervane {
namespace {

bool isLineBreak(char32_t c) noexcept {
  return (c >= 0x0a && c <= 0x0d) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

}  // namespace

std::string collapsedForPreview(std::string_view text, std::size_t limit) {
  std::string out;
  std::size_t written = 0;  // in code points
  bool atLineStart = true;
  bool blankPending = false;
  for (std::size_t at = 0; at < text.size();) {
    const char32_t c = nextCodePoint(text, at);
    if (isLineBreak(c) || isUnicodeSpace(c)) {
      atLineStart = atLineStart || isLineBreak(c);
      blankPending = written > 0;
      continue;
    }
    if (c == '>' && atLineStart) break;
    atLineStart = false;
    if (written + (blankPending ? 1 : 0) >= limit) break;
    if (blankPending) {
      out.push_back(' ');
      ++written;
      blankPending = false;
    }
    appendUtf8(out, c);
    ++written;
  }
  // " -- " in a running text and " --" at its end both begin a signature.
  out.resize(std::min(out.find(" --"), out.size()));
  return std::string(trim(out));
}

}  // namespace ambervane
