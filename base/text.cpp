#include "base/text.h"

#include <fmt/format.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace ambervane {
namespace {

char lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
char upper(char c) noexcept { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

icu::UnicodeString toIcu(std::string_view text) {
  return icu::UnicodeString::fromUTF8({text.data(), static_cast<int>(text.size())});
}

/// The code point that ends just before `at`, which moves to its start.
char32_t previousCodePoint(std::string_view text, std::size_t& at) noexcept {
  auto index = static_cast<std::int32_t>(std::min<std::size_t>(at, 8));
  const std::size_t base = at - static_cast<std::size_t>(index);
  UChar32 c = 0;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data() + base);
  U8_PREV(bytes, 0, index, c);
  at = base + static_cast<std::size_t>(index);
  return c < 0 ? U'�' : static_cast<char32_t>(c);
}

}  // namespace

bool isAsciiSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool isAscii(std::string_view text) noexcept {
  return std::none_of(text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; });
}

bool isAsciiDigit(char c) noexcept { return c >= '0' && c <= '9'; }

std::string_view trim(std::string_view text) noexcept {
  std::size_t begin = 0;
  while (begin < text.size()) {
    std::size_t next = begin;
    if (!isUnicodeSpace(nextCodePoint(text, next))) break;
    begin = next;
  }
  std::size_t end = text.size();
  while (end > begin) {
    std::size_t previous = end;
    if (!isUnicodeSpace(previousCodePoint(text, previous))) break;
    end = previous;
  }
  return text.substr(begin, end - begin);
}

std::string_view trimOf(std::string_view text, std::string_view set) noexcept {
  const std::size_t begin = text.find_first_not_of(set);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(set) - begin + 1);
}

std::string asciiLowercase(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), lower);
  return out;
}

std::string asciiUppercase(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), upper);
  return out;
}

bool asciiEqualIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

std::string lowercase(std::string_view text) {
  if (isAscii(text)) return asciiLowercase(text);
  std::string out;
  toIcu(text).toLower(icu::Locale::getRoot()).toUTF8String(out);
  return out;
}

std::string composed(std::string_view text) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* const nfc = icu::Normalizer2::getNFCInstance(status);
  const bool fits = text.size() <= std::numeric_limits<std::int32_t>::max();
  if (U_FAILURE(status) || !fits || isAscii(text)) return std::string(text);
  const icu::StringPiece piece(text.data(), static_cast<std::int32_t>(text.size()));
  if (nfc->isNormalizedUTF8(piece, status) != 0) return std::string(text);
  std::string out;
  icu::StringByteSink<std::string> sink(&out);
  nfc->normalizeUTF8(0, piece, sink, nullptr, status);
  return U_SUCCESS(status) ? out : std::string(text);
}

bool containsIgnoringCase(std::string_view text, std::string_view part) {
  if (isAscii(text) && isAscii(part)) {
    return asciiLowercase(text).find(asciiLowercase(part)) != std::string::npos;
  }
  // Folding may take a composed character apart, hence once more.
  const auto folded = [](std::string_view any) {
    std::string out;
    toIcu(composed(any)).foldCase().toUTF8String(out);
    return composed(out);
  };
  return folded(text).find(folded(part)) != std::string::npos;
}

std::vector<std::string_view> splitOmittingEmpty(std::string_view text,
                                                 std::string_view separators) {
  std::vector<std::string_view> pieces;
  std::size_t at = text.find_first_not_of(separators);
  while (at != std::string_view::npos) {
    const std::size_t end = std::min(text.find_first_of(separators, at), text.size());
    pieces.push_back(text.substr(at, end - at));
    at = text.find_first_not_of(separators, end);
  }
  return pieces;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  std::size_t at = 0;
  for (;;) {
    const std::size_t end = text.find(separator, at);
    pieces.push_back(text.substr(at, end - at));
    if (end == std::string_view::npos) return pieces;
    at = end + 1;
  }
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
  return fmt::format("{}", fmt::join(parts, separator));
}

std::optional<std::int64_t> parseInteger(std::string_view text) noexcept {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.empty() || !isAsciiDigit(text.front())) return std::nullopt;
  }
  std::int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || stop != end || text.empty()) return std::nullopt;
  return value;
}

bool isValidUtf8(std::string_view text) noexcept {
  std::size_t at = 0;
  while (at < text.size()) {
    if ((text[at] & 0x80) == 0) {
      ++at;
      continue;
    }
    std::int32_t index = 0;
    UChar32 c = 0;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data() + at);
    U8_NEXT(bytes, index, static_cast<std::int32_t>(std::min<std::size_t>(text.size() - at, 8)), c);
    if (c < 0) return false;
    at += static_cast<std::size_t>(index);
  }
  return true;
}

std::string repairedUtf8(std::string_view text) {
  if (isValidUtf8(text)) return std::string(text);
  std::string out;
  out.reserve(text.size() + 16);
  for (std::size_t at = 0; at < text.size();) appendUtf8(out, nextCodePoint(text, at));
  return out;
}

char32_t nextCodePoint(std::string_view text, std::size_t& at) noexcept {
  if ((text[at] & 0x80) == 0) return static_cast<char32_t>(text[at++]);
  std::int32_t index = 0;
  UChar32 c = 0;
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data() + at);
  U8_NEXT(bytes, index, static_cast<std::int32_t>(std::min<std::size_t>(text.size() - at, 8)), c);
  at += static_cast<std::size_t>(index);
  return c < 0 ? U'�' : static_cast<char32_t>(c);
}

void appendUtf8(std::string& out, char32_t codePoint) {
  std::array<std::uint8_t, 4> buffer{};
  std::int32_t length = 0;
  UBool failed = false;
  const auto c = static_cast<UChar32>(codePoint);
  U8_APPEND(buffer.data(), length, 4, c, failed);
  if (failed) {
    out += "�";
  } else {
    out.append(reinterpret_cast<const char*>(buffer.data()), static_cast<std::size_t>(length));
  }
}

bool isUnicodeSpace(char32_t c) noexcept {
  if (c < 128) return isAsciiSpace(static_cast<char>(c));
  return u_isUWhiteSpace(static_cast<UChar32>(c)) != 0;
}

std::string latin1ToUtf8(std::string_view bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (const char c : bytes) appendUtf8(out, static_cast<unsigned char>(c));
  return out;
}

std::string_view prefixCharacters(std::string_view text, std::size_t count) noexcept {
  if (text.size() <= count) return text;
  std::size_t seen = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if ((text[at] & 0xc0) == 0x80) continue;
    if (seen++ == count) return text.substr(0, at);
  }
  return text;
}

std::size_t characterCount(std::string_view text) noexcept {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

std::string printable(std::string_view text) {
  std::string out;
  for (std::size_t at = 0; at < text.size();) {
    const char32_t c = nextCodePoint(text, at);
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || (c >= 0x7f && c < 0xa0)) {
      out += fmt::format("\\x{:02x}", static_cast<unsigned>(c));
    } else {
      appendUtf8(out, c);
    }
  }
  return out;
}

std::string jsonString(std::string_view text, bool escapeSlash) {
  std::string out;
  out.reserve(text.size() + 2);
  out.push_back('"');
  for (const char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      case '/':
        out += escapeSlash ? "\\/" : "/";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          out += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
        } else {
          out.push_back(c);
        }
    }
  }
  out.push_back('"');
  return out;
}

std::string decimalNumber(double value) {
  std::array<char, 400> buffer{};
  const auto result =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed);
  return {buffer.data(), result.ptr};
}

std::string humanBytes(std::int64_t bytes) {
  static constexpr std::array<const char*, 4> kUnits = {"KB", "MB", "GB", "TB"};
  if (bytes < 1024) return fmt::format("{} B", bytes);
  auto value = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  for (; value >= 1024 && unit + 1 < kUnits.size(); ++unit) value /= 1024;
  return fmt::format("{:.1f} {}", value, kUnits[unit]);
}

}  // namespace ambervane
