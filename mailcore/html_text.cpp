#include "mailcore/html_text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "base/bytes.h"
#include "base/text.h"
#include "mailcore/charset.h"
#include "mailcore/html_entities.h"

// A tokenizer after the HTML Standard, section 13.2.5, cut down to what a reader of text needs: it
// finds the end of tags, comments and raw text as a browser does, and builds no tree. It walks the
// input once. Where it has to look for an end that may be missing (a closing quote), it remembers
// that there is none, so that a page of openings does not cost a search to the end for each.

namespace ambervane::HTMLText {
namespace {

/// What an element does to the flow of words.
enum class Flow { inlined, cell, block, preformatted, dropped };

struct Element {
  std::string_view name;
  Flow flow;
};

/// Sorted by name; elements that are not here are inline.
constexpr Element kElements[] = {
    {"address", Flow::block},    {"article", Flow::block},    {"aside", Flow::block},
    {"blockquote", Flow::block}, {"body", Flow::block},       {"br", Flow::block},
    {"button", Flow::cell},      {"caption", Flow::block},    {"center", Flow::block},
    {"dd", Flow::block},         {"details", Flow::block},    {"dialog", Flow::block},
    {"dir", Flow::block},        {"div", Flow::block},        {"dl", Flow::block},
    {"dt", Flow::block},         {"fieldset", Flow::block},   {"figcaption", Flow::block},
    {"figure", Flow::block},     {"footer", Flow::block},     {"form", Flow::block},
    {"h1", Flow::block},         {"h2", Flow::block},         {"h3", Flow::block},
    {"h4", Flow::block},         {"h5", Flow::block},         {"h6", Flow::block},
    {"head", Flow::block},       {"header", Flow::block},     {"hr", Flow::block},
    {"html", Flow::block},       {"iframe", Flow::dropped},   {"legend", Flow::block},
    {"li", Flow::block},         {"main", Flow::block},       {"menu", Flow::block},
    {"nav", Flow::block},        {"noembed", Flow::dropped},  {"noframes", Flow::dropped},
    {"ol", Flow::block},         {"optgroup", Flow::cell},    {"option", Flow::cell},
    {"p", Flow::block},          {"pre", Flow::preformatted}, {"script", Flow::dropped},
    {"section", Flow::block},    {"select", Flow::cell},      {"style", Flow::dropped},
    {"summary", Flow::block},    {"table", Flow::block},      {"tbody", Flow::block},
    {"td", Flow::cell},          {"textarea", Flow::cell},    {"tfoot", Flow::block},
    {"th", Flow::cell},          {"thead", Flow::block},      {"title", Flow::dropped},
    {"tr", Flow::block},         {"ul", Flow::block},
};

Flow flowOf(std::string_view name) {
  const auto* const found =
      std::lower_bound(std::begin(kElements), std::end(kElements), name,
                       [](const Element& e, std::string_view wanted) { return e.name < wanted; });
  return found != std::end(kElements) && found->name == name ? found->flow : Flow::inlined;
}

/// Bytes that end a run of plain text: markup, white space and control characters, and the first
/// bytes of all white space beyond ASCII.
constexpr std::array<bool, 256> makeStops() {
  std::array<bool, 256> stops{};
  for (std::size_t c = 0; c <= ' '; ++c) stops[c] = true;
  for (const unsigned char c : {'<', '&'}) stops[c] = true;
  for (const std::size_t lead : {0xc2, 0xe1, 0xe2, 0xe3}) stops[lead] = true;
  return stops;
}
constexpr std::array<bool, 256> kStops = makeStops();

bool isLetter(char c) noexcept { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool endsTagName(char c) noexcept { return isAsciiSpace(c) || c == '/' || c == '>'; }

/// The code point a numeric reference means (HTML Standard, section 13.2.5.80).
char32_t numericReference(std::uint32_t value) {
  if (value >= 0x80 && value < 0xa0) {
    return Charset::windows1252Character(static_cast<unsigned char>(value)).value_or(value);
  }
  const bool surrogate = value >= 0xd800 && value < 0xe000;
  return value == 0 || value > 0x10ffff || surrogate ? 0xfffd : value;
}

class Stripper {
 public:
  explicit Stripper(std::string_view html) : html_(html) { out_.reserve(html.size() / 4); }

  std::string run() {
    while (at_ < html_.size()) {
      const std::size_t begin = at_;
      while (at_ < html_.size() && !kStops[static_cast<unsigned char>(html_[at_])]) ++at_;
      if (at_ > begin) put(html_.substr(begin, at_ - begin));
      if (at_ == html_.size()) break;
      switch (html_[at_]) {
        case '<':
          readMarkup();
          break;
        case '&':
          readReference();
          break;
        default:
          readCharacter();
      }
    }
    return std::move(out_);
  }

 private:
  enum class Gap { none, blank, line };

  void widenGap(Gap gap) noexcept { gap_ = std::max(gap_, gap); }

  void put(std::string_view text) {
    if (gap_ != Gap::none && !out_.empty()) out_.push_back(gap_ == Gap::line ? '\n' : ' ');
    gap_ = Gap::none;
    out_ += text;
  }

  void putSpace(char32_t c) noexcept {
    widenGap(c == '\n' && preformatted_ > 0 ? Gap::line : Gap::blank);
  }

  /// White space, a control character or the start of a longer character.
  void readCharacter() {
    const std::size_t begin = at_;
    const char32_t c = nextCodePoint(html_, at_);
    if (isUnicodeSpace(c)) {
      putSpace(c);
    } else if (c != 0) {
      put(html_.substr(begin, at_ - begin));
    }
  }

  /// At "&". What is no reference is text.
  void readReference() {
    if (html_.substr(at_, 2) == "&#") {
      readNumericReference();
      return;
    }
    constexpr std::size_t kLongestName = 31;
    const std::string_view rest = html_.substr(at_ + 1, kLongestName + 1);
    const auto* const end = std::find_if_not(rest.begin(), rest.end(),
                                             [](char c) { return isLetter(c) || isAsciiDigit(c); });
    const auto length = static_cast<std::size_t>(end - rest.begin());
    if (length < rest.size() && rest[length] == ';') {
      const std::string_view found = htmlCharacter(rest.substr(0, length));
      if (!found.empty()) {
        putCharacter(found);
        at_ += length + 2;
        return;
      }
    }
    const HtmlPrefix prefix = htmlLegacyPrefix(rest.substr(0, length));
    putCharacter(prefix.length > 0 ? prefix.character : "&");
    at_ += prefix.length + 1;
  }

  void readNumericReference() {
    std::size_t digit = at_ + 2;
    const bool hexadecimal = digit < html_.size() && (html_[digit] == 'x' || html_[digit] == 'X');
    if (hexadecimal) ++digit;
    const int base = hexadecimal ? 16 : 10;
    const std::size_t first = digit;
    std::uint32_t value = 0;
    for (; digit < html_.size(); ++digit) {
      const int number = hexDigit(html_[digit]);
      if (number < 0 || number >= base) break;
      // Once it is beyond Unicode it stays there, and does not overflow.
      if (value <= 0x10ffff)
        value = value * static_cast<std::uint32_t>(base) + static_cast<std::uint32_t>(number);
    }
    if (digit == first) {
      put("&");
      ++at_;
      return;
    }
    at_ = digit;
    if (at_ < html_.size() && html_[at_] == ';') ++at_;
    std::string text;
    appendUtf8(text, numericReference(value));
    putCharacter(text);
  }

  void putCharacter(std::string_view text) {
    std::size_t next = 0;
    const char32_t c = nextCodePoint(text, next);
    if (isUnicodeSpace(c)) {
      putSpace(c);
    } else {
      put(text);
    }
  }

  /// At "<".
  void readMarkup() {
    const std::string_view rest = html_.substr(at_);
    if (rest.starts_with("<!--")) {
      skipComment();
    } else if (rest.size() > 1 && isLetter(rest[1])) {
      readTag(at_ + 1, /*closing=*/false);
    } else if (rest.starts_with("</") && rest.size() > 2 && isLetter(rest[2])) {
      readTag(at_ + 2, /*closing=*/true);
    } else if (rest.starts_with("<!") || rest.starts_with("<?") || rest.starts_with("</")) {
      skipBehind(">", at_);
    } else {
      put("<");
      ++at_;
    }
  }

  void skipBehind(std::string_view end, std::size_t from) {
    const std::size_t found = html_.find(end, from);
    at_ = found == html_.npos ? html_.size() : found + end.size();
  }

  void skipComment() {
    const std::size_t content = at_ + 4;
    if (html_.substr(content, 1) == ">" || html_.substr(content, 2) == "->") {
      skipBehind(">", content);
      return;
    }
    // Both "-->" and "--!>" end it.
    for (std::size_t dashes = content;; ++dashes) {
      dashes = html_.find("--", dashes);
      if (dashes == html_.npos) {
        at_ = html_.size();
        return;
      }
      const std::string_view behind = html_.substr(dashes + 2, 2);
      if (behind.starts_with('>') || behind == "!>") {
        at_ = dashes + 2 + (behind.starts_with('>') ? 1 : 2);
        return;
      }
    }
  }

  /// A start or end tag whose name begins at `begin`.
  void readTag(std::size_t begin, bool closing) {
    constexpr std::size_t kLongestName = 10;  // of those in kElements
    std::array<char, kLongestName> lower{};
    std::size_t length = 0;
    std::size_t end = begin;
    for (; end < html_.size() && !endsTagName(html_[end]); ++end) {
      const char c = html_[end];
      if (length < kLongestName) {
        lower[length] = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
      }
      ++length;
    }
    const std::string_view name(lower.data(), std::min(length, kLongestName));
    const Flow flow = length > kLongestName ? Flow::inlined : flowOf(name);
    skipAttributes(end);
    const bool selfClosing = html_[at_ - 1] == '>' && html_[at_ - 2] == '/';
    switch (flow) {
      case Flow::inlined:
        break;
      case Flow::cell:
        widenGap(Gap::blank);
        break;
      case Flow::block:
        widenGap(Gap::line);
        break;
      case Flow::preformatted:
        widenGap(Gap::line);
        if (!closing) ++preformatted_;
        if (closing && preformatted_ > 0) --preformatted_;
        break;
      case Flow::dropped:
        widenGap(Gap::blank);
        if (!closing && !selfClosing) skipRawText(name);
    }
  }

  /// Moves behind the ">" of a tag whose name ends at `at`.
  void skipAttributes(std::size_t at) {
    enum class State { name, beforeValue, unquoted };
    State state = State::name;
    for (; at < html_.size(); ++at) {
      const char c = html_[at];
      if (c == '>') {
        at_ = at + 1;
        return;
      }
      if (state == State::name) {
        if (c == '=') state = State::beforeValue;
      } else if (isAsciiSpace(c)) {
        if (state == State::unquoted) state = State::name;
      } else if (state == State::beforeValue && (c == '"' || c == '\'')) {
        at = closingQuote(at);
        state = State::name;
      } else {
        state = State::unquoted;
      }
    }
    at_ = html_.size();
  }

  /// The quote that closes the one at `open`, or `open` itself where none does: a page cut short
  /// or badly quoted then loses a tag rather than all its text.
  std::size_t closingQuote(std::size_t open) {
    std::size_t& unclosed = html_[open] == '"' ? unclosedDouble_ : unclosedSingle_;
    if (open >= unclosed) return open;
    const std::size_t close = html_.find(html_[open], open + 1);
    if (close != html_.npos) return close;
    unclosed = open;
    return open;
  }

  /// Moves to the end tag of a raw text element, or to the end.
  void skipRawText(std::string_view name) {
    while (at_ < html_.size()) {
      skipBehind("</", at_);
      const std::string_view found = html_.substr(at_, name.size());
      if (!asciiEqualIgnoringCase(found, name)) continue;
      const std::size_t end = at_ + name.size();
      if (end < html_.size() && !endsTagName(html_[end])) continue;
      skipBehind(">", end);
      return;
    }
  }

  std::string_view html_;
  std::size_t at_ = 0;
  std::string out_;
  Gap gap_ = Gap::none;
  std::size_t preformatted_ = 0;  // depth of <pre>
  // From here on no quote of the kind is closed.
  std::size_t unclosedDouble_ = std::string_view::npos;
  std::size_t unclosedSingle_ = std::string_view::npos;
};

}  // namespace

std::string strip(std::string_view html) {
  if (isValidUtf8(html)) return Stripper(html).run();
  const std::string repaired = repairedUtf8(html);
  return Stripper(repaired).run();
}

}  // namespace ambervane::HTMLText
