#include "store/base64_recipe.h"

#include <cstdint>
#include <utility>

#include "base/json.h"
#include "mailcore/transfer_decoding.h"

// Most of what is analysed is not base64 at all, or is plain base64 as every mailer writes it. So
// the shape of the lines is looked at first, which turns away everything else at its second line,
// and only then is the text decoded. No rule about oddities is needed: the text is encoded again
// and compared, and whatever a recipe cannot reproduce gets none.

namespace ambervane {
namespace {

constexpr const char* kLineLengthKey = "lineLength";
constexpr const char* kUsesCRLFKey = "usesCRLF";
constexpr const char* kTrailingNewlineKey = "trailingNewline";
constexpr const char* kLeadingWhitespaceKey = "leadingWhitespace";
constexpr std::size_t kLinesPerPiece = 256;

/// The line at the start of `text` without its end (RFC 5322 section 2.1, bare LF taken too);
/// `text` moves behind it.
BytesView takeLine(BytesView& text) noexcept {
  const std::size_t end = text.find('\n');
  BytesView line = text.substr(0, end);
  text.remove_prefix(end == BytesView::npos ? text.size() : end + 1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

/// What the lines of `encoded` look like; absent when base64 never looks so.
std::optional<Base64Recipe> shapeOf(BytesView encoded) {
  if (encoded.size() < Base64Recipe::kMinEncodedBytes) return std::nullopt;
  Base64Recipe recipe;
  BytesView rest = encoded;
  BytesView line = takeLine(rest);
  if (line.empty()) {
    recipe.leadingWhitespace = encoded.starts_with("\r\n") ? "\r\n" : "\n";
    if (rest.empty()) return std::nullopt;
    line = takeLine(rest);
  }
  recipe.lineLength = line.size();
  if (line.size() < Base64Recipe::kMinLineLength || line.size() > Base64Recipe::kMaxLineLength ||
      line.size() % 4 != 0) {
    return std::nullopt;
  }
  while (!rest.empty()) {
    if (line.size() != recipe.lineLength) return std::nullopt;
    line = takeLine(rest);
  }
  if (line.size() > recipe.lineLength) return std::nullopt;
  recipe.usesCRLF = encoded.find("\r\n") != BytesView::npos;
  recipe.trailingNewline = encoded.ends_with('\n');
  return recipe;
}

/// Whether `recipe.encode(decoded)` is `encoded`, in the memory of a few lines. The length of a
/// line is a multiple of four.
bool reproduces(const Base64Recipe& recipe, BytesView decoded, BytesView encoded) {
  Base64Recipe piece = recipe;
  const auto takes = [&encoded](BytesView text) {
    if (!encoded.starts_with(text)) return false;
    encoded.remove_prefix(text.size());
    return true;
  };
  const std::size_t step = recipe.lineLength / 4 * 3 * kLinesPerPiece;
  for (std::size_t at = 0; at < decoded.size(); at += step) {
    piece.leadingWhitespace = at == 0 ? recipe.leadingWhitespace : "";
    piece.trailingNewline = at + step < decoded.size() || recipe.trailingNewline;
    if (!takes(piece.encode(decoded.substr(at, step)))) return false;
  }
  return encoded.empty();
}

}  // namespace

std::optional<Base64Recipe::Analysis> Base64Recipe::analyze(BytesView encoded) {
  if (!shapeOf(encoded)) return std::nullopt;
  Bytes decoded = ContentTransferDecoder::decodeBase64(encoded);
  auto recipe = analyze(encoded, decoded);
  if (!recipe) return std::nullopt;
  return Analysis{*std::move(recipe), std::move(decoded)};
}

std::optional<Base64Recipe> Base64Recipe::analyze(BytesView encoded, BytesView decoded) {
  if (decoded.empty()) return std::nullopt;
  std::optional<Base64Recipe> recipe = shapeOf(encoded);
  if (recipe && !reproduces(*recipe, decoded, encoded)) recipe.reset();
  return recipe;
}

Bytes Base64Recipe::encode(BytesView decoded) const {
  const Bytes text = base64Encode(decoded);
  const BytesView newline = usesCRLF ? "\r\n" : "\n";
  const std::size_t length = lineLength < 1 ? text.size() : lineLength;
  const std::size_t lines = text.empty() ? 0 : (text.size() - 1) / length + 1;
  Bytes out;
  out.reserve(leadingWhitespace.size() + text.size() + lines * newline.size());
  out += leadingWhitespace;
  for (std::size_t at = 0; at < text.size(); at += length) {
    if (at > 0) out += newline;
    out.append(text, at, length);
  }
  if (trailingNewline) out += newline;
  return out;
}

std::string Base64Recipe::toJson() const {
  const nlohmann::json json = {{kLeadingWhitespaceKey, leadingWhitespace},
                               {kLineLengthKey, lineLength},
                               {kTrailingNewlineKey, trailingNewline},
                               {kUsesCRLFKey, usesCRLF}};
  return compactJson(json);
}

std::optional<Base64Recipe> Base64Recipe::fromJson(std::string_view text) {
  const nlohmann::json json = tryParseJson(text);
  if (!json.is_object()) return std::nullopt;
  const auto lineLength = json.find(kLineLengthKey);
  const auto usesCRLF = json.find(kUsesCRLFKey);
  const auto trailingNewline = json.find(kTrailingNewlineKey);
  const auto leadingWhitespace = json.find(kLeadingWhitespaceKey);
  const auto end = json.end();
  if (lineLength == end || !lineLength->is_number_unsigned() || *lineLength < 1 ||
      usesCRLF == end || !usesCRLF->is_boolean() || trailingNewline == end ||
      !trailingNewline->is_boolean() || leadingWhitespace == end ||
      !leadingWhitespace->is_string()) {
    return std::nullopt;
  }
  return Base64Recipe{lineLength->get<std::size_t>(), usesCRLF->get<bool>(),
                      trailingNewline->get<bool>(), leadingWhitespace->get<std::string>()};
}

}  // namespace ambervane
