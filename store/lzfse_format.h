#ifndef AMBERVANE_STORE_LZFSE_FORMAT_H_
#define AMBERVANE_STORE_LZFSE_FORMAT_H_

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

/// The numbers of the LZFSE stream, explained in docs/format/lzfse.md, and loads of its
/// little-endian integers that are fast enough for inner loops.
namespace ambervane::lzfse {

inline constexpr std::uint32_t kStoredBlock = 0x2d787662;        ///< "bvx-"
inline constexpr std::uint32_t kByteCodeBlock = 0x6e787662;      ///< "bvxn"
inline constexpr std::uint32_t kPlainTablesBlock = 0x31787662;   ///< "bvx1"
inline constexpr std::uint32_t kPackedTablesBlock = 0x32787662;  ///< "bvx2"
inline constexpr std::uint32_t kEndOfStream = 0x24787662;        ///< "bvx$"

inline constexpr std::size_t kStoredHeaderBytes = 8;
inline constexpr std::size_t kByteCodeHeaderBytes = 12;
inline constexpr std::size_t kPackedHeaderBytes = 32;  ///< without its tables
inline constexpr std::size_t kPlainHeaderBytes = 772;

inline constexpr std::size_t kMaxLiterals = 40000;
inline constexpr std::size_t kMaxTriples = 10000;
/// Zero bytes in front of the triples, for decoders that load eight bytes at a time.
inline constexpr std::size_t kTriplesLead = 8;
inline constexpr std::size_t kLiteralCoders = 4;

inline constexpr unsigned kLengthStates = 64;
inline constexpr unsigned kDistanceStates = 256;
inline constexpr unsigned kLiteralStates = 1024;
inline constexpr std::size_t kLengthSymbols = 20;
inline constexpr std::size_t kDistanceSymbols = 64;
inline constexpr std::size_t kLiteralSymbols = 256;
inline constexpr std::size_t kAllSymbols = 2 * kLengthSymbols + kDistanceSymbols + kLiteralSymbols;

inline constexpr std::uint32_t kMaxLiteralRun = 315;
inline constexpr std::uint32_t kMaxMatch = 2359;
inline constexpr std::uint32_t kMaxDistance = 262139;

/// A symbol stands for the values from `base` to `base` + 2^`extraBits` - 1.
struct ValueRange {
  std::uint32_t base = 0;
  std::uint8_t extraBits = 0;
};
template <std::size_t kSymbols>
using ValueRanges = std::array<ValueRange, kSymbols>;

consteval ValueRanges<kLengthSymbols> lengthRanges(std::array<std::uint8_t, 4> lastExtraBits) {
  ValueRanges<kLengthSymbols> ranges{};
  std::uint32_t base = 0;
  for (std::size_t symbol = 0; symbol < ranges.size(); ++symbol) {
    const std::uint8_t extraBits = symbol < 16 ? std::uint8_t{0} : lastExtraBits[symbol - 16];
    ranges[symbol] = {base, extraBits};
    base += 1U << extraBits;
  }
  return ranges;
}
consteval ValueRanges<kDistanceSymbols> distanceRanges() {
  ValueRanges<kDistanceSymbols> ranges{};
  for (std::uint32_t symbol = 0; symbol < ranges.size(); ++symbol) {
    const std::uint32_t extraBits = symbol / 4;
    ranges[symbol] = {((4 + symbol % 4) << extraBits) - 4, static_cast<std::uint8_t>(extraBits)};
  }
  return ranges;
}
inline constexpr auto kLiteralRuns = lengthRanges({2, 3, 5, 8});
inline constexpr auto kMatches = lengthRanges({3, 5, 8, 11});
inline constexpr auto kDistances = distanceRanges();

/// The symbol of a distance from 0 to `kMaxDistance`.
constexpr std::size_t distanceSymbol(std::uint32_t distance) noexcept {
  const std::uint32_t shifted = distance + 4;
  const auto extraBits = static_cast<std::size_t>(std::bit_width(shifted >> 3));
  return 4 * extraBits + (shifted >> extraBits) - 4;
}

inline std::uint32_t load32(const char* bytes) noexcept {
  const auto* b = reinterpret_cast<const unsigned char*>(bytes);
  return b[0] | std::uint32_t{b[1]} << 8 | std::uint32_t{b[2]} << 16 | std::uint32_t{b[3]} << 24;
}
inline std::uint64_t load64(const char* bytes) noexcept {
  const auto* b = reinterpret_cast<const unsigned char*>(bytes);
  return b[0] | std::uint64_t{b[1]} << 8 | std::uint64_t{b[2]} << 16 | std::uint64_t{b[3]} << 24 |
         std::uint64_t{b[4]} << 32 | std::uint64_t{b[5]} << 40 | std::uint64_t{b[6]} << 48 |
         std::uint64_t{b[7]} << 56;
}
inline void store64(char* bytes, std::uint64_t value) noexcept {
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<char>(value >> (8 * i));
}

}  // namespace ambervane::lzfse

#endif  // AMBERVANE_STORE_LZFSE_FORMAT_H_
