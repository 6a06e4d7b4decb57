#ifndef AMBERVANE_STORE_BASE64_RECIPE_H_
#define AMBERVANE_STORE_BASE64_RECIPE_H_

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "base/bytes.h"

namespace ambervane {

/// How decoded bytes turn back into the exact base64 text they came from. Page:
/// docs/format/record.md.
struct Base64Recipe {
  /// What `analyze` takes as the length of a line, besides being a multiple of four.
  static constexpr std::size_t kMinLineLength = 4;
  static constexpr std::size_t kMaxLineLength = 998;
  static constexpr std::size_t kMinEncodedBytes = 8;

  std::size_t lineLength = 76;  ///< characters of every line but the last; at least 1
  bool usesCRLF = true;
  bool trailingNewline = true;    ///< whether a line break follows the last line
  std::string leadingWhitespace;  ///< stands before the first line

  struct Analysis;
  /// A recipe and the decoded bytes, such that `encode` of them is `encoded` byte for byte; absent
  /// when there is none. Never fails otherwise. Linear in the size, and quick for text that is not
  /// base64.
  static std::optional<Analysis> analyze(BytesView encoded);
  /// The recipe alone, where `decoded` is known already: what
  /// `ContentTransferDecoder::decodeBase64(encoded)` gives.
  static std::optional<Base64Recipe> analyze(BytesView encoded, BytesView decoded);

  Bytes encode(BytesView decoded) const;

  /// Compact JSON with the keys leadingWhitespace, lineLength, trailingNewline, usesCRLF.
  std::string toJson() const;
  /// Absent for text that is not such an object, or has a line length below 1.
  static std::optional<Base64Recipe> fromJson(std::string_view json);
  friend bool operator==(const Base64Recipe&, const Base64Recipe&) = default;
};

struct Base64Recipe::Analysis {
  Base64Recipe recipe;
  Bytes decoded;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_BASE64_RECIPE_H_
