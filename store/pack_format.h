#ifndef AMBERVANE_STORE_PACK_FORMAT_H_
#define AMBERVANE_STORE_PACK_FORMAT_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "store/codec.h"

namespace ambervane {

// The constants of a pack file; docs/format/pack.md is their page. All integers are little-endian.

inline constexpr std::string_view kPackMagic{"AVPACK\x01\x00", 8};
inline constexpr std::size_t kPackHeaderBytes = 16;  ///< the magic and eight zero bytes

inline constexpr std::string_view kRecordMagic = "AVR1";
inline constexpr std::size_t kRecordHeaderBytes = 20;
inline constexpr std::size_t kMaxRecordPayloadBytes = 536870912;
/// Offsets of the fields from the first byte of a record.
inline constexpr std::size_t kRecordFlagsOffset = 4;
inline constexpr std::size_t kRecordDictionaryOffset = 6;
inline constexpr std::size_t kRecordOriginalLengthOffset = 8;
inline constexpr std::size_t kRecordStoredLengthOffset = 12;
inline constexpr std::size_t kRecordChecksumOffset = 16;

/// The flags word of a record.
struct RecordFlags {
  static constexpr std::uint16_t kDeflated = 0x0001;  ///< compressed, by whatever codec
  static constexpr std::uint16_t kEncrypted = 0x0002;
  static constexpr std::uint16_t kBlob = 0x0004;
  static constexpr std::uint16_t kSolidBlock = 0x0008;
  static constexpr int kCodecShift = 4;
  static constexpr std::uint16_t kCodecMask = 0x7;

  std::uint16_t bits = 0;

  static constexpr RecordFlags make(Codec codec, bool encrypted, bool blob) noexcept {
    const unsigned base = static_cast<unsigned>(codec) << kCodecShift |
                          (codec == Codec::stored ? 0U : unsigned{kDeflated});
    return {static_cast<std::uint16_t>(base | (encrypted ? kEncrypted : 0U) | (blob ? kBlob : 0U))};
  }
  constexpr bool deflated() const noexcept { return (bits & kDeflated) != 0; }
  constexpr bool encrypted() const noexcept { return (bits & kEncrypted) != 0; }
  constexpr bool blob() const noexcept { return (bits & kBlob) != 0; }
  constexpr bool solidBlock() const noexcept { return (bits & kSolidBlock) != 0; }
  /// Of a record with `deflated`. A number without a codec reads as deflate.
  constexpr Codec codec() const noexcept {
    const int raw = bits >> kCodecShift & kCodecMask;
    return raw <= static_cast<int>(Codec::brotli) ? static_cast<Codec>(raw)
                                                  : Codec::deflateDictionary;
  }
  friend bool operator==(const RecordFlags&, const RecordFlags&) = default;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_PACK_FORMAT_H_
