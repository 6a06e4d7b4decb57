#ifndef AMBERVANE_IMAPKIT_IMAP_RESPONSE_H_
#define AMBERVANE_IMAPKIT_IMAP_RESPONSE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/bytes.h"

namespace ambervane {

/// Lists nested deeper are read as if their parentheses were not there.
inline constexpr std::size_t kMaxListDepth = 64;

/// One piece of a response (RFC 3501 section 4).
struct IMAPToken {
  /// Brackets and what stands in them belong to an atom: "BODY[HEADER.FIELDS (TO)]" is one.
  struct Atom {
    std::string text;
    friend bool operator==(const Atom&, const Atom&) = default;
  };
  struct Quoted {
    std::string text;
    friend bool operator==(const Quoted&, const Quoted&) = default;
  };
  struct Literal {
    Bytes bytes;
    friend bool operator==(const Literal&, const Literal&) = default;
  };
  using List = std::vector<IMAPToken>;
  struct Nil {
    friend bool operator==(const Nil&, const Nil&) = default;
  };
  std::variant<Atom, Quoted, Literal, List, Nil> value;

  /// The text of an atom, a quoted string or a literal (as UTF-8, repaired).
  std::optional<std::string> stringValue() const;
  /// The decimal reading of `stringValue`.
  std::optional<std::int64_t> intValue() const;
  const List* list() const noexcept { return std::get_if<List>(&value); }
  bool isNil() const noexcept { return std::holds_alternative<Nil>(value); }
  /// Whether this is an atom of that text, whatever its case.
  bool isAtom(std::string_view text) const noexcept;
  friend bool operator==(const IMAPToken&, const IMAPToken&) = default;
};

/// One complete response of a server.
struct IMAPResponse {
  enum class Kind { tagged, untagged, continuation };
  Kind kind = Kind::untagged;
  std::string tag = {};                ///< of a tagged response
  std::vector<IMAPToken> tokens = {};  ///< without the tag or the "*"; a continuation keeps its "+"
  std::string rawText = {};            ///< UTF-8, each literal replaced by one NUL

  /// Whether token `index` is an atom of that text, whatever its case.
  bool hasAtom(std::size_t index, std::string_view text) const noexcept;
  /// The text inside the first "[" and the "]" behind it.
  std::optional<std::string_view> responseCode() const noexcept;
  /// What follows `name`, whatever its case, as the first word of the response code: "9" for
  /// "UIDNEXT" in "[UIDNEXT 9]", empty where nothing follows. Valid as long as the response.
  std::optional<std::string_view> responseCodeValue(std::string_view name) const noexcept;
  friend bool operator==(const IMAPResponse&, const IMAPResponse&) = default;
};

/// Reads one response: `text` is its lines joined, UTF-8, with a NUL for each of `literals`. Never
/// fails, linear in its size. Moves the literals into the tokens.
IMAPResponse parseResponse(std::string text, std::vector<Bytes> literals);

/// The number in a "{n}" or "{n+}" at the end of a line, as text of digits; absent for any other.
std::optional<std::string_view> announcedLiteralSize(std::string_view line) noexcept;

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_IMAP_RESPONSE_H_
