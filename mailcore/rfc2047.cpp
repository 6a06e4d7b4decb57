#include "mailcore/rfc2047.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "base/bytes.h"
#include "base/text.h"
#include "mailcore/charset.h"
#include "mailcore/transfer_decoding.h"

// A field may hold a million beginnings of words that never become one, so two things keep the
// time linear: where the next "?=" stands is remembered between words, and a base64 text is given
// up at the first byte that spoils it. A text running over a later "=?x?b?" is spoilt there at the
// latest, by a digit behind a "=".

namespace ambervane::RFC2047 {
namespace {

constexpr std::size_t kMaxCharsetCharacters = 80;

/// Base64 with white space and unknown characters left out and up to two missing "=" supplied.
/// Absent where the groups do not come out or something follows the padding.
std::optional<Bytes> decodeB(std::string_view text) {
  Bytes bytes;
  std::uint32_t group = 0;
  std::size_t characters = 0;  // all but white space: what decides about the missing padding
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (std::size_t at = 0; at < text.size();) {
    const char32_t c = nextCodePoint(text, at);
    if (isUnicodeSpace(c)) continue;
    ++characters;
    if (c == '=') {
      if (++padding > 2) return std::nullopt;
      continue;
    }
    const int digit = c > 127 ? -1 : ContentTransferDecoder::base64Digit(static_cast<char>(c));
    if (digit < 0) continue;
    if (padding > 0) return std::nullopt;
    group = group << 6 | static_cast<std::uint32_t>(digit);
    if (++digits % 4 == 0) {
      for (const int shift : {16, 8, 0}) bytes.push_back(static_cast<char>(group >> shift));
    }
  }
  if (characters % 4 == 2) padding += 2;
  if (characters % 4 == 3) padding += 1;
  if (padding > 2 || (digits + padding) % 4 != 0) return std::nullopt;
  if (digits % 4 == 2) bytes.push_back(static_cast<char>(group >> 4));
  if (digits % 4 == 3) {
    bytes.push_back(static_cast<char>(group >> 10));
    bytes.push_back(static_cast<char>(group >> 2));
  }
  return bytes;
}

Bytes decodeQ(std::string_view text) {
  std::string spaced(text);
  std::replace(spaced.begin(), spaced.end(), '_', ' ');
  return ContentTransferDecoder::decodeHexEscapes(spaced, '=');
}

class WordReader {
 public:
  explicit WordReader(std::string_view text) : text_(text) {}

  /// Reads the word whose charset begins at `at`, which then moves behind the word. Absent, with
  /// `at` where it was, if there is no word.
  std::optional<std::string> read(std::size_t& at) {
    // No UTF-8 character is longer than four bytes.
    const std::string_view window = text_.substr(at, 4 * kMaxCharsetCharacters + 1);
    const std::string_view token = window.substr(0, window.find('?'));
    if (token.empty() || token.size() == window.size() ||
        characterCount(token) > kMaxCharsetCharacters) {
      return std::nullopt;
    }
    const std::size_t encoding = at + token.size() + 1;
    const std::size_t begin = encoding + 2;
    if (begin > text_.size() || text_[encoding + 1] != '?') return std::nullopt;
    const char kind = text_[encoding];
    const bool isB = kind == 'B' || kind == 'b';
    if (!isB && kind != 'Q' && kind != 'q') return std::nullopt;
    const std::size_t end = terminatorFrom(begin);
    if (end == text_.npos) return std::nullopt;
    const std::string_view content = text_.substr(begin, end - begin);
    const auto bytes = isB ? decodeB(content) : decodeQ(content);
    if (!bytes) return std::nullopt;
    at = end + 2;
    return Charset::decode(*bytes, token.substr(0, token.find('*')));
  }

 private:
  std::size_t terminatorFrom(std::size_t at) {
    if (!searched_ || terminator_ < at) terminator_ = text_.find("?=", at);
    searched_ = true;
    return terminator_;
  }

  std::string_view text_;
  bool searched_ = false;
  std::size_t terminator_ = 0;  // the first "?=" behind the last place searched from, or npos
};

}  // namespace

std::string decode(std::string_view text) {
  std::size_t marker = text.find("=?");
  if (marker == text.npos) return std::string(trim(text));
  WordReader reader(text);
  std::string out;
  std::size_t at = 0;
  bool afterWord = false;
  for (; marker != text.npos; marker = text.find("=?", at)) {
    const std::string_view before = text.substr(at, marker - at);
    const bool held = afterWord && before.find_first_not_of(" \t\r\n") == before.npos;
    if (!held) out += before;
    at = marker + 2;
    const auto word = reader.read(at);
    afterWord = word.has_value();
    if (word) {
      out += *word;
    } else {
      if (held) out += before;
      out += "=?";
    }
  }
  out += text.substr(at);
  return std::string(trim(out));
}

std::string encodeIfNeeded(std::string_view text) {
  if (isAscii(text)) return std::string(text);
  return "=?UTF-8?B?" + base64Encode(text) + "?=";
}

}  // namespace ambervane::RFC2047
