#include "doctext/text_collector.h"

#include <algorithm>
#include <array>

#include "base/text.h"

namespace ambervane {
namespace {

enum class Class : unsigned char { space, line, run, other, wide };

constexpr std::array<Class, 256> makeClasses() {
  std::array<Class, 256> classes{};
  for (std::size_t c = 0; c < 256; ++c) {
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    const bool digit = c >= '0' && c <= '9';
    if (c >= 0x80) {
      classes[c] = Class::wide;
    } else if (c == '\n') {
      classes[c] = Class::line;
    } else if (c <= ' ' || c == 0x7f) {
      classes[c] = Class::space;
    } else {
      // The rest of base64 counts as letters, or its data would come through in pieces.
      classes[c] = letter || digit || c == '+' || c == '/' || c == '=' ? Class::run : Class::other;
    }
  }
  return classes;
}
constexpr std::array<Class, 256> kClasses = makeClasses();

Class classOf(char c) noexcept { return kClasses[static_cast<unsigned char>(c)]; }

/// Latin ligatures, U+FB00 to U+FB06, which a search for the letters would miss.
constexpr std::array<std::string_view, 7> kLigatures = {"ff", "fi", "fl", "ffi", "ffl", "st", "st"};

/// Whether a character only says how a word may be broken or joined on a page.
bool isInvisible(char32_t c) noexcept {
  return c == 0xad || c == 0x200b || c == 0x2060 || c == 0xfeff;
}

}  // namespace

void TextCollector::append(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size() && !full_) {
    const std::size_t begin = at;
    const Class kind = classOf(text[at]);
    if (kind == Class::wide) {
      const char32_t c = nextCodePoint(text, at);
      putCodePoint(text.substr(begin, at - begin), c);
      continue;
    }
    while (at < text.size() && classOf(text[at]) == kind) ++at;
    switch (kind) {
      case Class::line:
        breakLine();
        break;
      case Class::space:
        breakWord();
        break;
      case Class::run:
        putRun(text.substr(begin, at - begin));
        break;
      default:
        inRun_ = skipping_ = false;
        put(text.substr(begin, at - begin));
    }
  }
}

void TextCollector::checkpoint() {
  breakLine();
  if (observer_) observer_(text_);
}

void TextCollector::endRun(Gap gap) noexcept {
  inRun_ = skipping_ = false;
  gap_ = std::max(gap_, gap);
}

void TextCollector::put(std::string_view piece) {
  const bool needsGap = gap_ != Gap::none && !text_.empty();
  const std::size_t used = text_.size() + (needsGap ? 1 : 0);
  const std::size_t room = limit_ > used ? limit_ - used : 0;
  if (piece.size() > room) {
    full_ = true;
    while (!piece.empty() && (piece.size() > room || (piece.back() & 0x80) != 0)) {
      piece.remove_suffix(1);
    }
    if (piece.empty()) return;
  }
  if (needsGap) text_.push_back(gap_ == Gap::line ? '\n' : ' ');
  gap_ = Gap::none;
  text_ += piece;
}

void TextCollector::putRun(std::string_view piece) {
  if (skipping_) return;
  if (!inRun_) runStart_ = text_.size();
  inRun_ = true;
  const std::size_t known = text_.size() - runStart_;
  if (known + piece.size() > kLongestWord) {
    text_.resize(runStart_);
    gap_ = std::max(gap_, Gap::blank);
    skipping_ = true;
    return;
  }
  put(piece);
}

void TextCollector::putCodePoint(std::string_view bytes, char32_t c) {
  if (isInvisible(c)) return;
  inRun_ = skipping_ = false;
  if (isUnicodeSpace(c) || (c >= 0x80 && c < 0xa0)) {
    breakWord();
  } else if (c >= 0xfb00 && c <= 0xfb06) {
    put(kLigatures[c - 0xfb00]);
  } else if (c == 0xfffd) {
    put("\xef\xbf\xbd");
  } else {
    put(bytes);
  }
}

}  // namespace ambervane
