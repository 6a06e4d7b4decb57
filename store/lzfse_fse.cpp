#include "store/lzfse_fse.h"

#include <algorithm>
#include <numeric>

namespace ambervane::lzfse {
namespace {

struct Code {
  std::uint32_t value;
  unsigned bits;
};

Code packedFrequency(std::uint32_t frequency) noexcept {
  if (frequency < 2) return {frequency * 2, 2};
  if (frequency < 4) return {(frequency - 2) * 4 + 1, 3};
  if (frequency < 8) return {(frequency - 4) * 8 + 3, 5};
  if (frequency < 24) return {(frequency - 8) * 16 + 7, 8};
  return {(frequency - 24) * 16 + 15, 14};
}

/// The frequency that the low bits of `code` stand for, and how many bits it takes.
Code unpackedFrequency(std::uint32_t code) noexcept {
  if ((code & 1) == 0) return {code >> 1 & 1, 2};
  if ((code & 2) == 0) return {2 + (code >> 2 & 1), 3};
  if ((code & 4) == 0) return {4 + (code >> 3 & 3), 5};
  if ((code & 8) == 0) return {8 + (code >> 4 & 15), 8};
  return {24 + (code >> 4 & 1023), 14};
}

/// For a symbol of `frequency`, the most bits one step moves.
unsigned longStepBits(std::uint32_t frequency, unsigned states) noexcept {
  return static_cast<unsigned>(std::bit_width(states) - std::bit_width(frequency));
}

}  // namespace

void appendPackedTables(Bytes& out, const FrequencyTables& tables) {
  std::uint32_t pending = 0;
  unsigned count = 0;
  FrequencyTables::each(tables, [&](std::span<const std::uint16_t> table, unsigned) {
    for (const std::uint16_t frequency : table) {
      const Code code = packedFrequency(frequency);
      pending |= code.value << count;
      for (count += code.bits; count >= 8; count -= 8, pending >>= 8) {
        out.push_back(static_cast<char>(pending));
      }
    }
  });
  if (count > 0) out.push_back(static_cast<char>(pending));
}

bool readPackedTables(BytesView packed, FrequencyTables& tables) {
  std::size_t next = 0;
  std::uint32_t pending = 0;
  unsigned count = 0;
  bool whole = true;
  FrequencyTables::each(tables, [&](std::span<std::uint16_t> table, unsigned) {
    for (std::uint16_t& frequency : table) {
      for (; count <= 16 && next < packed.size(); count += 8) {
        pending |= std::uint32_t{static_cast<unsigned char>(packed[next++])} << count;
      }
      const Code code = unpackedFrequency(pending);
      if (code.bits > count) {
        whole = false;
        return;
      }
      frequency = static_cast<std::uint16_t>(code.value);
      pending >>= code.bits;
      count -= code.bits;
    }
  });
  return whole && next == packed.size() && count < 8 && fitsStates(tables);
}

bool fitsStates(const FrequencyTables& tables) {
  bool fits = true;
  FrequencyTables::each(tables, [&](std::span<const std::uint16_t> table, unsigned states) {
    fits = fits && std::accumulate(table.begin(), table.end(), 0U) <= states;
  });
  return fits;
}

void shareStates(std::span<const std::uint32_t> counts, unsigned states,
                 std::span<std::uint16_t> frequencies) {
  const std::uint64_t total = std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
  std::fill(frequencies.begin(), frequencies.end(), std::uint16_t{0});
  if (total == 0) {
    frequencies[0] = static_cast<std::uint16_t>(states);
    return;
  }
  unsigned shared = 0;
  for (std::size_t symbol = 0; symbol < counts.size(); ++symbol) {
    if (counts[symbol] == 0) continue;
    const std::uint64_t share = (counts[symbol] * std::uint64_t{states} + total / 2) / total;
    frequencies[symbol] = static_cast<std::uint16_t>(std::max<std::uint64_t>(share, 1));
    shared += frequencies[symbol];
  }
  // A step from f to f + 1 saves a symbol that occurs c times c * log2((f + 1) / f) bits, which is
  // nearly in proportion to c / (2 * f + 1): take and give where that is least and most.
  for (; shared > states; --shared) {
    std::size_t cheapest = 0;
    double least = 0;
    for (std::size_t symbol = 0; symbol < counts.size(); ++symbol) {
      if (frequencies[symbol] < 2) continue;
      const double loss = counts[symbol] / (2.0 * frequencies[symbol] - 1);
      if (least == 0 || loss < least) cheapest = symbol, least = loss;
    }
    --frequencies[cheapest];
  }
  for (; shared < states; ++shared) {
    std::size_t dearest = 0;
    double most = 0;
    for (std::size_t symbol = 0; symbol < counts.size(); ++symbol) {
      const double gain = counts[symbol] / (2.0 * frequencies[symbol] + 1);
      if (gain > most) dearest = symbol, most = gain;
    }
    ++frequencies[dearest];
  }
}

std::vector<EncoderSymbol> encoderTable(std::span<const std::uint16_t> frequencies,
                                        unsigned states) {
  std::vector<EncoderSymbol> table(frequencies.size());
  std::int32_t first = 0;
  for (std::size_t symbol = 0; symbol < frequencies.size(); ++symbol) {
    const std::int32_t frequency = frequencies[symbol];
    if (frequency == 0) continue;
    const unsigned bits = longStepBits(frequencies[symbol], states);
    table[symbol] = {(frequency << bits) - static_cast<std::int32_t>(states), first - frequency,
                     bits};
    first += frequency;
  }
  return table;
}

void fillDecoderTable(std::span<const std::uint16_t> frequencies, std::span<DecoderState> table) {
  const auto states = static_cast<std::uint32_t>(table.size());
  std::size_t state = 0;
  for (std::size_t symbol = 0; symbol < frequencies.size(); ++symbol) {
    const std::uint32_t frequency = frequencies[symbol];
    if (frequency == 0) continue;
    const unsigned bits = longStepBits(frequency, states);
    const std::uint32_t longSteps = (2 * states >> bits) - frequency;
    for (std::uint32_t step = 0; step < frequency; ++step) {
      const bool isLong = step < longSteps;
      const std::uint32_t next =
          isLong ? ((frequency + step) << bits) - states : (step - longSteps) << (bits - 1);
      table[state++] = {static_cast<std::uint16_t>(next),
                        static_cast<std::uint8_t>(isLong ? bits : bits - 1),
                        static_cast<std::uint8_t>(symbol)};
    }
  }
  for (; state < table.size(); ++state) table[state] = {static_cast<std::uint16_t>(state), 0, 0};
}

}  // namespace ambervane::lzfse
