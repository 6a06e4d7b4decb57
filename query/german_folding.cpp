#include "query/german_folding.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <unordered_set>

#include "base/text.h"

namespace ambervane::GermanFolding {
namespace {

// Every letter of the table is two bytes beginning with C3 in UTF-8, but for the capital sharp s
// (U+1E9E), which is three. A scan for these two needs no decoding, and text in plain ASCII is
// passed over at the speed of memchr.
constexpr char kLead = '\xc3';
constexpr std::string_view kCapitalSharpS = "\xe1\xba\x9e";

/// What the letter C3 `second` is spelt as; empty for a letter outside the table.
std::string_view expansionOf(char second) noexcept {
  switch (static_cast<unsigned char>(second)) {
    case 0xa4:
      return "ae";  // ä
    case 0x84:
      return "Ae";  // Ä
    case 0xb6:
      return "oe";  // ö
    case 0x96:
      return "Oe";  // Ö
    case 0xbc:
      return "ue";  // ü
    case 0x9c:
      return "Ue";  // Ü
    case 0x9f:
      return "ss";  // ß
    case 0xa5:
      return "aa";  // å
    case 0x85:
      return "Aa";  // Å
    case 0xa6:
      return "ae";  // æ
    case 0x86:
      return "Ae";  // Æ
    case 0xb8:
      return "oe";  // ø
    case 0x98:
      return "Oe";  // Ø
    default:
      return {};
  }
}

bool isWordCharacter(char32_t c) noexcept {
  if (c < 128) {
    const char a = static_cast<char>(c);
    return isAsciiDigit(a) || (a >= 'a' && a <= 'z') || (a >= 'A' && a <= 'Z') || a == '-';
  }
  return (U_MASK(u_charType(static_cast<UChar32>(c))) & (U_GC_L_MASK | U_GC_N_MASK)) != 0;
}

/// The end of the word that begins at `at`; `at` itself when none does.
std::size_t wordEnd(std::string_view text, std::size_t at) noexcept {
  while (at < text.size()) {
    std::size_t next = at;
    if (!isWordCharacter(nextCodePoint(text, next))) break;
    at = next;
  }
  return at;
}

/// The umlaut a pair of letters stands for, in the case of its first; empty for any other pair.
std::string_view umlautOf(char first, char second) noexcept {
  if (second != 'e' && second != 'E') return {};
  switch (first) {
    case 'a':
      return "ä";
    case 'o':
      return "ö";
    case 'u':
      return "ü";
    case 'A':
      return "Ä";
    case 'O':
      return "Ö";
    case 'U':
      return "Ü";
    default:
      return {};
  }
}

/// A text in composed form, copied only when it was in another.
class Composed {
 public:
  explicit Composed(std::string_view text) : text_(text) {
    if (isAscii(text)) return;
    composed_ = composed(text);
    text_ = composed_;
  }
  Composed(const Composed&) = delete;  // the view may point into the object
  Composed& operator=(const Composed&) = delete;
  operator std::string_view() const noexcept { return text_; }

 private:
  std::string composed_;
  std::string_view text_;
};

/// What `needsExpansion` tells, of text in composed form.
bool holdsLetter(std::string_view text) noexcept {
  for (std::size_t at = text.find(kLead); at < text.size(); at = text.find(kLead, at + 1)) {
    if (at + 1 < text.size() && !expansionOf(text[at + 1]).empty()) return true;
  }
  return text.find(kCapitalSharpS) != std::string_view::npos;
}

void appendNew(std::vector<std::string>& list, std::string text) {
  if (std::find(list.begin(), list.end(), text) == list.end()) list.push_back(std::move(text));
}

}  // namespace

bool needsExpansion(std::string_view text) { return holdsLetter(Composed(text)); }

std::string expand(std::string_view given) {
  const Composed composed(given);
  const std::string_view text = composed;
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] == kLead && at + 1 < text.size()) {
      if (const std::string_view spelt = expansionOf(text[at + 1]); !spelt.empty()) {
        out += spelt;
        at += 2;
        continue;
      }
    } else if (text.substr(at).starts_with(kCapitalSharpS)) {
      out += "SS";
      at += kCapitalSharpS.size();
      continue;
    }
    out.push_back(text[at++]);
  }
  return out;
}

std::string indexVariants(std::string_view given, std::size_t limit) {
  const Composed composed(given);
  const std::string_view text = composed;
  std::string out;
  if (!holdsLetter(text)) return out;
  std::unordered_set<std::string> seen;
  for (std::size_t at = 0; at < text.size() && seen.size() < limit;) {
    const std::size_t end = wordEnd(text, at);
    if (end == at) {
      nextCodePoint(text, at);
      continue;
    }
    const std::string_view word = text.substr(at, end - at);
    at = end;
    if (!holdsLetter(word)) continue;
    // Two letters at least, for every letter of the table is spelt with two.
    const auto [variant, isNew] = seen.insert(lowercase(expand(word)));
    if (!isNew) continue;
    if (!out.empty()) out.push_back(' ');
    out += *variant;
  }
  return out;
}

std::optional<std::string> contract(std::string_view given, bool includeSharpS) {
  const Composed composed(given);
  const std::string_view text = composed;
  std::string out;
  out.reserve(text.size() + 8);
  bool changed = false;
  for (std::size_t at = 0; at < text.size();) {
    std::string_view letter;
    if (at + 1 < text.size()) {
      letter = umlautOf(text[at], text[at + 1]);
      if (letter.empty() && includeSharpS && asciiEqualIgnoringCase(text.substr(at, 2), "ss")) {
        letter = "ß";
      }
    }
    if (letter.empty()) {
      out.push_back(text[at++]);
      continue;
    }
    out += letter;
    at += 2;
    changed = true;
  }
  if (!changed) return std::nullopt;
  return out;
}

std::vector<std::string> contractions(std::string_view word) {
  std::vector<std::string> list;
  for (const bool includeSharpS : {false, true}) {
    if (auto contracted = contract(word, includeSharpS)) appendNew(list, std::move(*contracted));
  }
  return list;
}

std::vector<std::string> queryVariants(std::string_view word) {
  std::vector<std::string> list{std::string(Composed(word))};
  appendNew(list, expand(word));
  for (std::string& contracted : contractions(word)) appendNew(list, std::move(contracted));
  return list;
}

}  // namespace ambervane::GermanFolding
