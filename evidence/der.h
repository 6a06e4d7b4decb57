#ifndef AMBERVANE_EVIDENCE_DER_H_
#define AMBERVANE_EVIDENCE_DER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

#include "base/bytes.h"
#include "base/date.h"

/// As much of the Distinguished Encoding Rules (X.690) as a time-stamp request and its reply need.
/// Reading takes any bytes and never fails: what is no element is absent.
namespace ambervane::DER {

inline constexpr std::uint8_t kBoolean = 0x01;
inline constexpr std::uint8_t kInteger = 0x02;
inline constexpr std::uint8_t kOctetString = 0x04;
inline constexpr std::uint8_t kNull = 0x05;
inline constexpr std::uint8_t kObjectIdentifier = 0x06;
inline constexpr std::uint8_t kUtf8String = 0x0c;
inline constexpr std::uint8_t kGeneralizedTime = 0x18;
inline constexpr std::uint8_t kSequence = 0x30;

/// How many levels below its start a search goes.
inline constexpr std::size_t kMaximumDepth = 40;

/// A length in the fewest bytes.
Bytes length(std::size_t n);
Bytes encode(std::uint8_t tag, BytesView body);
Bytes sequence(std::initializer_list<Bytes> parts);
Bytes integer(std::uint64_t value);
/// The non-negative integer of these big-endian bytes.
Bytes integer(BytesView bytes);
Bytes octetString(BytesView data);
Bytes boolean(bool value);
Bytes null();
/// `dotted` is an identifier of ours, such as "1.2.840.113549": at least two arcs, well formed.
Bytes objectIdentifier(std::string_view dotted);

/// Where one element lies in the bytes it was read from.
struct Element {
  std::uint8_t tag = 0;
  std::size_t start = 0;  ///< of its header
  ByteRange contents;

  bool isConstructed() const noexcept { return (tag & 0x20) != 0; }
  std::size_t end() const noexcept { return contents.end; }
  ByteRange whole() const noexcept { return {start, contents.end}; }
  friend bool operator==(const Element&, const Element&) = default;
};

/// The element whose header begins at `at`. Absent when `in` does not hold it whole, its length is
/// not definite, or its tag takes more than a byte.
std::optional<Element> element(BytesView in, std::size_t at) noexcept;
/// The elements directly inside a constructed one, up to the first that cannot be read.
std::vector<Element> children(const Element& of, BytesView in);
/// The first element with `tag` that `where` (when given) accepts among those from `from` to `to`
/// and, depth first, inside the constructed ones; `depth` is what of `kMaximumDepth` is used up
/// already. Linear in `to - from`, in constant space.
std::optional<Element> firstElement(BytesView in, std::uint8_t tag, std::size_t from,
                                    std::size_t to, std::size_t depth = 0,
                                    const std::function<bool(const Element&)>& where = {});
/// The bytes between header and end.
BytesView body(const Element& of, BytesView in) noexcept;
/// Absent unless it is an INTEGER of one to eight bytes.
std::optional<std::int64_t> integerValue(const Element& of, BytesView in) noexcept;
/// Absent unless it is a GeneralizedTime "YYYYMMDDhhmmss" with an optional fraction, then "Z".
std::optional<Date> generalizedTime(const Element& of, BytesView in);

}  // namespace ambervane::DER

#endif  // AMBERVANE_EVIDENCE_DER_H_
