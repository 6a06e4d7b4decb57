#ifndef AMBERVANE_STORE_LZFSE_FSE_H_
#define AMBERVANE_STORE_LZFSE_FSE_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/bytes.h"
#include "store/lzfse_format.h"

/// The entropy coding of LZFSE blocks: frequency tables, the coders made from them, and bit streams
/// that are written forwards and read backwards. docs/format/lzfse.md, "Entropy coding".
namespace ambervane::lzfse {

/// How many of a coder's states each symbol owns.
struct FrequencyTables {
  std::array<std::uint16_t, kLengthSymbols> literalRuns{};
  std::array<std::uint16_t, kLengthSymbols> matches{};
  std::array<std::uint16_t, kDistanceSymbols> distances{};
  std::array<std::uint16_t, kLiteralSymbols> literals{};

  /// The four tables in the order of the stream; `visit(table, states)`.
  template <typename Self, typename Visitor>
  static void each(Self& self, Visitor visit) {
    visit(std::span(self.literalRuns), kLengthStates);
    visit(std::span(self.matches), kLengthStates);
    visit(std::span(self.distances), kDistanceStates);
    visit(std::span(self.literals), kLiteralStates);
  }
};

/// Appends the packed form, filled up to a whole byte.
void appendPackedTables(Bytes& out, const FrequencyTables& tables);
/// Reads `packed`, all of it; false when it is damaged or a table has more than its states.
bool readPackedTables(BytesView packed, FrequencyTables& tables);
/// Whether no table has more than its states.
bool fitsStates(const FrequencyTables& tables);

/// Shares `states` out in proportion to `counts`, at least one to each symbol that occurs, so that
/// the coded size is near its least. All go to symbol 0 when none occurs. No more symbols than
/// states may occur.
void shareStates(std::span<const std::uint32_t> counts, unsigned states,
                 std::span<std::uint16_t> frequencies);

/// Bits appended from the lowest position up.
class BitWriter {
 public:
  /// `buffer` must have room for all that is written and eight bytes more.
  explicit BitWriter(char* buffer) noexcept : next_(buffer) {}
  /// `value` must be below 2^`bits`. Between two calls of `flush` fit 57 bits.
  void put(std::uint64_t value, unsigned bits) noexcept {
    pending_ |= value << count_;
    count_ += bits;
  }
  void flush() noexcept {
    store64(next_, pending_);
    const unsigned bytes = count_ / 8;
    next_ += bytes;
    pending_ = bytes == 8 ? 0 : pending_ >> (8 * bytes);
    count_ %= 8;
  }
  /// Fills the last byte up with zeros; the number of these bits, from 0 to 7.
  unsigned finish() noexcept {
    flush();
    if (count_ == 0) return 0;
    ++next_;
    return 8 - count_;
  }
  char* end() const noexcept { return next_; }

 private:
  char* next_;
  std::uint64_t pending_ = 0;
  unsigned count_ = 0;  ///< bits in `pending_`
};

/// Reads the highest bits not read yet.
class BackwardBitReader {
 public:
  static constexpr std::size_t kMargin = 8;  ///< bytes that must be readable on both sides
  /// `bits` bits from `bytes` on.
  BackwardBitReader(const char* bytes, std::size_t bits) noexcept
      : margin_(bytes - kMargin), position_(bits + 8 * kMargin) {}
  /// Makes the next 57 bits ready for `take`; zeros where there are fewer.
  void refill() noexcept {
    const std::size_t lowest = position_ - 56;
    window_ = load64(margin_ + lowest / 8) >> (lowest % 8);
    ready_ = 56;
  }
  /// The next `bits` bits, at most 56 in all since `refill`.
  std::uint32_t take(unsigned bits) noexcept {
    ready_ -= bits;
    return static_cast<std::uint32_t>(window_ >> ready_) & ((1U << bits) - 1);
  }
  /// Ends a group begun by `refill`; false when it ran past the end of the bits. Do not go on then.
  bool advance() noexcept {
    position_ -= 56 - ready_;
    return position_ >= 8 * kMargin;
  }
  std::size_t unread() const noexcept { return position_ - 8 * kMargin; }

 private:
  const char* margin_;
  std::size_t position_;  ///< of the end of the unread bits, counted from `margin_`
  std::uint64_t window_ = 0;
  unsigned ready_ = 0;
};

struct EncoderSymbol {
  std::int32_t firstLong = 0;  ///< states from here on write `bits`, others one bit less
  std::int32_t start = 0;      ///< the symbol's first state less its frequency
  unsigned bits = 0;
};
/// What moves a coder of `frequencies`' states on for each symbol.
std::vector<EncoderSymbol> encoderTable(std::span<const std::uint16_t> frequencies,
                                        unsigned states);

/// Appends what brings a decoder from the new `state` back to the one before.
inline void encodeSymbol(BitWriter& out, const EncoderSymbol& symbol, unsigned states,
                         std::uint32_t& state) noexcept {
  const unsigned bits = symbol.bits - (static_cast<std::int32_t>(state) < symbol.firstLong ? 1 : 0);
  out.put(state & ((1U << bits) - 1), bits);
  state = static_cast<std::uint32_t>(symbol.start +
                                     static_cast<std::int32_t>((state + states) >> bits));
}

/// What a decoder does in one state. A state no symbol owns leads to itself as symbol 0.
struct DecoderState {
  std::uint16_t next = 0;  ///< plus the bits read
  std::uint8_t bits = 0;
  std::uint8_t symbol = 0;
};
/// `table` has one entry a state; the sum of `frequencies` must not be above that.
void fillDecoderTable(std::span<const std::uint16_t> frequencies, std::span<DecoderState> table);

}  // namespace ambervane::lzfse

#endif  // AMBERVANE_STORE_LZFSE_FSE_H_
