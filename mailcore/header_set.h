#ifndef AMBERVANE_MAILCORE_HEADER_SET_H_
#define AMBERVANE_MAILCORE_HEADER_SET_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/bytes.h"

namespace ambervane {

/// The name under which header lines that are no field are kept.
inline constexpr std::string_view kInvalidHeaderName = "X-Invalid-Header";

/// One header field (RFC 5322 section 2.2), both strings UTF-8.
struct HeaderField {
  std::string name;      ///< as written, trimmed, case preserved
  std::string rawValue;  ///< all behind the colon, unfolded, undecoded, with its leading blank
  std::string lowercasedName() const;
  /// `rawValue` with its encoded words read, trimmed.
  std::string decodedValue() const;
  friend bool operator==(const HeaderField&, const HeaderField&) = default;
};

/// The fields of one header block in file order, duplicates kept. Names are looked up whatever
/// their case; a lookup costs time in proportion to the number of fields.
///
/// All texts lie in one buffer, because a hostile message can have a field in every two bytes.
/// Views handed out are valid until the set is changed, moved or destroyed. A field that would make
/// the texts longer than 4 GiB is left out.
class HeaderSet {
 public:
  HeaderSet() = default;
  explicit HeaderSet(const std::vector<HeaderField>& fields);
  /// Reads a header block. Never fails: a line that is no field becomes an "X-Invalid-Header".
  /// Values are read as UTF-8, else Windows 1252, else Latin 1. Empty lines are passed over.
  static HeaderSet parse(BytesView data);

  std::size_t size() const noexcept { return entries_.size(); }
  bool empty() const noexcept { return entries_.empty(); }
  /// The field at `index`, which must be below `size()`.
  HeaderField field(std::size_t index) const;
  std::string_view name(std::size_t index) const noexcept;
  std::string_view rawValue(std::size_t index) const noexcept;
  std::vector<HeaderField> fields() const;

  /// The `rawValue` of the first field of that name.
  std::optional<std::string_view> operator[](std::string_view name) const;
  std::optional<HeaderField> first(std::string_view name) const;
  std::vector<HeaderField> all(std::string_view name) const;
  /// The first field's value with its encoded words read, trimmed.
  std::optional<std::string> decoded(std::string_view name) const;

  /// Adds at the end. Both strings must be well-formed UTF-8, the name not empty.
  void append(const HeaderField& field) { append(field.name, field.rawValue); }
  void append(std::string_view name, std::string_view rawValue);

  /// Each field as name, ":", `rawValue` and CRLF, without a closing empty line.
  Bytes serialized() const;

 private:
  struct Entry {
    // Of 32 bits, because a hostile message can have millions.
    std::uint32_t begin;  ///< of the name in `text_`; the value ends where the next entry begins
    std::uint32_t nameLength;  ///< 0 for `kInvalidHeaderName`, which is not written out each time
  };
  std::size_t find(std::string_view name, std::size_t from) const;

  std::string text_;
  std::vector<Entry> entries_;
};

/// Where a part's header block ends and its body begins, counted from the part's first byte.
struct HeaderSplit {
  std::size_t headerEnd = 0;  ///< without the empty line
  std::size_t bodyBegin = 0;  ///< the size of the part when it has no empty line
};
/// Splits at the first CRLF CRLF, or only if there is none at the first LF LF. Linear.
HeaderSplit splitHeaderAndBody(BytesView part) noexcept;

/// Walks lines cut at each LF, without their LF and one CR before it. A last line without LF
/// counts, an empty rest behind the last LF does not.
class LineReader {
 public:
  explicit LineReader(BytesView data) noexcept : rest_(data) {}
  std::optional<BytesView> next() noexcept;

 private:
  BytesView rest_;
};
/// All lines of `LineReader`, as views into `data`.
std::vector<BytesView> splitLines(BytesView data);

/// The trimmed name of a field that starts on `line`, absent where the line is no field.
std::optional<std::string> fieldName(BytesView line);

/// The first occurrence of `pattern` at or behind `from`. Linear, whatever the pattern.
std::optional<ByteRange> firstRange(BytesView data, BytesView pattern,
                                    std::size_t from = 0) noexcept;

}  // namespace ambervane

#endif  // AMBERVANE_MAILCORE_HEADER_SET_H_
