#include "doctext/format_section.h"

#include <algorithm>

#include "base/text.h"

namespace ambervane {
namespace {

using Kind = FormatToken::Kind;

/// Codes longer than spreadsheets take are read as "General".
constexpr std::size_t kLongestCode = 512;

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  return asciiEqualIgnoringCase(text.substr(0, prefix.size()), prefix);
}

bool isDateLetter(char c) noexcept {
  return std::string_view("ymdhsYMDHS").find(c) != std::string_view::npos;
}

/// How many characters at the start are the same but for case.
std::size_t sameLetters(std::string_view text) {
  const auto isOther = [&](char c) { return (c | 0x20) != (text[0] | 0x20); };
  return static_cast<std::size_t>(std::find_if(text.begin(), text.end(), isOther) - text.begin());
}

class SectionParser {
 public:
  /// Reads from `code` up to the semicolon that ends the section, and returns what it took.
  std::size_t read(std::string_view code) {
    std::size_t at = 0;
    while (at < code.size() && code[at] != ';') at += take(code.substr(at));
    const auto isDigit = [](const FormatToken& token) { return token.kind == Kind::digit; };
    const auto& tokens = section.tokens;
    if (!section.isDate && std::none_of(tokens.begin(), tokens.end(), isDigit)) {
      section.isGeneral = true;
    }
    return std::min(at, code.size());
  }

  FormatSection section;

 private:
  void add(Kind kind, std::string_view text) {
    section.tokens.push_back({kind, std::string(text)});
  }

  /// Takes the token at the start of `rest`, not empty, and returns its length.
  std::size_t take(std::string_view rest) {
    switch (rest[0]) {
      case '"':
        return takeQuoted(rest);
      case '[':
        return takeBrackets(rest);
      case '\\':
        add(Kind::literal, rest.substr(1, 1));
        return 2;
      case '_':    // a blank as wide as the next character
      case '*': {  // the next character, as often as it fits
        add(Kind::literal, " ");
        std::size_t end = 1;
        if (rest.size() > 1) nextCodePoint(rest, end);
        return end;
      }
      case '0':
      case '#':
      case '?':
        add(Kind::digit, rest.substr(0, 1));
        return 1;
      case '.':
        add(Kind::point, ".");
        return 1;
      case ',':
        add(Kind::comma, ",");
        return 1;
      case '%':
        add(Kind::percent, "%");
        return 1;
      default:
        return takeWord(rest);
    }
  }

  std::size_t takeQuoted(std::string_view rest) {
    const std::size_t end = std::min(rest.find('"', 1), rest.size());
    add(Kind::literal, rest.substr(1, end - 1));
    return end + 1;
  }

  std::size_t takeBrackets(std::string_view rest) {
    const std::size_t end = std::min(rest.find(']'), rest.size());
    const std::string_view inside = rest.substr(1, end - 1);
    if (inside.starts_with('$')) {  // a currency, perhaps with a language behind it
      add(Kind::literal, inside.substr(1, inside.find('-') - 1));
    } else if (!inside.empty() && isDateLetter(inside[0]) && sameLetters(inside) == inside.size()) {
      add(Kind::elapsed, asciiLowercase(inside));
      section.isDate = true;
    }
    return end + 1;
  }

  std::size_t takeWord(std::string_view rest) {
    for (const std::string_view word : {"AM/PM", "A/P"}) {
      if (!startsWithIgnoringCase(rest, word)) continue;
      add(Kind::halfDay, word);
      return word.size();
    }
    if (isDateLetter(rest[0])) {
      const std::size_t length = sameLetters(rest);
      add(Kind::date, asciiLowercase(rest.substr(0, length)));
      section.isDate = true;
      return length;
    }
    if (startsWithIgnoringCase(rest, "General")) {
      section.isGeneral = true;
      return std::string_view("General").size();
    }
    const bool isFraction = rest[0] == '/' && rest.find_first_of("?#0123456789") == 1;
    const bool isPower = startsWithIgnoringCase(rest, "E+") || startsWithIgnoringCase(rest, "E-");
    if (isFraction || isPower) section.isGeneral = true;
    add(Kind::literal, rest.substr(0, 1));
    return 1;
  }
};

}  // namespace

std::vector<FormatSection> parseNumberFormat(std::string_view code) {
  if (code.size() > kLongestCode) code = {};
  std::vector<FormatSection> sections;
  for (;;) {
    SectionParser parser;
    code.remove_prefix(parser.read(code));
    sections.push_back(std::move(parser.section));
    if (code.empty()) return sections;
    code.remove_prefix(1);
  }
}

}  // namespace ambervane
