#include "cli/display_columns.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <utility>

#include "base/text.h"

namespace ambervane {
namespace {

constexpr char32_t kJoiner = 0x200d;
constexpr char32_t kEmojiSelector = 0xfe0f;

bool isRegionalIndicator(char32_t c) { return c >= 0x1f1e6 && c <= 0x1f1ff; }

bool isSpacingMark(char32_t c) {
  return u_charType(static_cast<UChar32>(c)) == U_COMBINING_SPACING_MARK;
}

bool isEmojiModifier(char32_t c) { return c >= 0x1f3fb && c <= 0x1f3ff; }

/// Whether `c` belongs to the character before it.
bool extends(char32_t c) {
  const auto code = static_cast<UChar32>(c);
  const auto breaking = u_getIntPropertyValue(code, UCHAR_GRAPHEME_CLUSTER_BREAK);
  return breaking == U_GCB_EXTEND || breaking == U_GCB_SPACING_MARK || breaking == U_GCB_ZWJ ||
         breaking == U_GCB_V || breaking == U_GCB_T || isEmojiModifier(c);
}

std::size_t columnsOf(char32_t c) {
  const auto code = static_cast<UChar32>(c);
  // Flags count in pairs, one column for each half.
  if (isRegionalIndicator(c)) return 1;
  const auto width = u_getIntPropertyValue(code, UCHAR_EAST_ASIAN_WIDTH);
  if (width == U_EA_WIDE || width == U_EA_FULLWIDTH) return 2;
  const auto type = u_charType(code);
  return type == U_NON_SPACING_MARK || type == U_ENCLOSING_MARK || type == U_FORMAT_CHAR ? 0 : 1;
}

/// A character as a person counts them: its end in the text and its columns.
struct Cluster {
  std::size_t end = 0;
  std::size_t columns = 0;
};

/// The character at `at`. Bounded, so that a text of nothing but accents does not pass for one
/// character of any length.
Cluster clusterAt(std::string_view text, std::size_t at) {
  constexpr int kMostParts = 32;
  const char32_t base = nextCodePoint(text, at);
  Cluster cluster{at, columnsOf(base)};
  bool joined = false;
  bool pairsFlag = isRegionalIndicator(base);
  for (int part = 1; part < kMostParts && at < text.size(); ++part) {
    const char32_t next = nextCodePoint(text, at);
    const bool isFlagPair = pairsFlag && isRegionalIndicator(next);
    if (!joined && !isFlagPair && !extends(next)) break;
    if (isFlagPair || isSpacingMark(next)) cluster.columns += columnsOf(next);
    if (next == kEmojiSelector) cluster.columns = 2;
    pairsFlag = false;
    joined = next == kJoiner;
    cluster.end = at;
  }
  return cluster;
}

}  // namespace

std::size_t displayWidth(std::string_view text) {
  std::size_t columns = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Cluster cluster = clusterAt(text, at);
    columns += cluster.columns;
    at = cluster.end;
  }
  return columns;
}

std::string_view cutToWidth(std::string_view text, std::size_t columns) {
  std::size_t used = 0;
  std::size_t at = 0;
  while (at < text.size()) {
    const Cluster cluster = clusterAt(text, at);
    used += cluster.columns;
    if (used > columns) break;
    at = cluster.end;
  }
  return text.substr(0, at);
}

std::string fitted(std::string_view text, std::size_t columns) {
  return padded(cutToWidth(text, columns), columns);
}

std::string padded(std::string_view text, std::size_t columns) {
  const std::size_t width = displayWidth(text);
  return std::string(text) + std::string(columns - std::min(width, columns), ' ');
}

std::string_view cutToCharacters(std::string_view text, std::size_t count) {
  std::size_t at = 0;
  for (; count > 0 && at < text.size(); --count) at = clusterAt(text, at).end;
  return text.substr(0, at);
}

}  // namespace ambervane
