#ifndef AMBERVANE_BASE_BYTES_H_
#define AMBERVANE_BASE_BYTES_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ambervane {

using Bytes = std::string;           ///< owned raw bytes
using BytesView = std::string_view;  ///< borrowed raw bytes; the owner must outlive it

/// A half-open range of byte positions.
struct ByteRange {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::size_t size() const noexcept { return end - begin; }
  bool empty() const noexcept { return begin == end; }
  friend bool operator==(const ByteRange&, const ByteRange&) = default;
};

/// The bytes of `range` in `data`, clamped to what `data` holds.
BytesView slice(BytesView data, ByteRange range) noexcept;

/// Appends `value` in little-endian byte order.
void appendLittleEndian16(Bytes& out, std::uint16_t value);
void appendLittleEndian32(Bytes& out, std::uint32_t value);
/// Reads little-endian values; `data` must hold `offset` plus the width (a fault of ours
/// otherwise).
std::uint16_t readLittleEndian16(BytesView data, std::size_t offset) noexcept;
std::uint32_t readLittleEndian32(BytesView data, std::size_t offset) noexcept;

/// Lower-case hexadecimal digits, two a byte.
std::string hexEncode(BytesView bytes);
/// The bytes of an even number of hexadecimal digits of either case; absent for anything else.
std::optional<Bytes> hexDecode(std::string_view digits);
/// The value of one hexadecimal digit of either case, or -1.
int hexDigit(char c) noexcept;

/// Standard base64 with padding, on one line (RFC 4648 section 4).
std::string base64Encode(BytesView bytes);
/// Strict inverse of `base64Encode`; absent for any other text. Mail uses `decodeBase64` instead.
std::optional<Bytes> base64DecodeStrict(std::string_view text);

}  // namespace ambervane

#endif  // AMBERVANE_BASE_BYTES_H_
