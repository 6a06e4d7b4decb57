// The data is parsed into triples (literals, match length, distance) with one or two steps of lazy
// search; BlockWriter gathers them, and codes a block whenever one is full.
#include <algorithm>
#include <array>
#include <limits>
#include <vector>

#include "store/lzfse.h"
#include "store/lzfse_format.h"
#include "store/lzfse_fse.h"
#include "store/lzfse_matches.h"

namespace ambervane {
namespace lzfse {
namespace {

/// From this much input on, data is given up whose stream is above `kHopefulShare` of it.
constexpr std::size_t kTrialBytes = std::size_t{256} << 10;
constexpr double kHopefulShare = 0.97;

/// How many earlier occurrences are looked at. A good match is worth a quarter of it and one lazy
/// step instead of two: measured on mail, what the others find is not worth their time.
constexpr int kTries = 8;
constexpr std::uint32_t kGoodMatch = 16;
/// After this many literals in a row every second position is searched, after twice as many every
/// third, and so on until they are written: data without matches goes by fast.
constexpr std::size_t kLiteralsPerSkip = 128;

template <std::size_t kValues, std::size_t kSymbols>
consteval std::array<std::uint8_t, kValues> symbolsOfValues(const ValueRanges<kSymbols>& ranges) {
  std::array<std::uint8_t, kValues> symbols{};
  for (std::size_t symbol = 0; symbol < kSymbols; ++symbol) {
    for (std::size_t value = ranges[symbol].base; value < kValues; ++value) {
      symbols[value] = static_cast<std::uint8_t>(symbol);
    }
  }
  return symbols;
}
constexpr auto kLiteralRunSymbols = symbolsOfValues<kMaxLiteralRun + 1>(kLiteralRuns);
constexpr auto kMatchSymbols = symbolsOfValues<kMaxMatch + 1>(kMatches);

struct Triple {
  std::uint16_t literals = 0, match = 0;
  std::uint32_t distance = 0;  ///< 0: that of the triple before
};

/// What a block's header tells, and a decoder starts from.
struct Payloads {
  FrequencyTables tables;
  std::array<std::uint32_t, kLiteralCoders> literalStates{};
  std::uint32_t literalRunState = 0, matchState = 0, distanceState = 0;
  unsigned literalFiller = 0, tripleFiller = 0;  ///< bits
  std::size_t literalBytes = 0, tripleBytes = 0;
};

/// Gathers triples and appends them to a stream block by block.
class BlockWriter {
 public:
  BlockWriter(Bytes& out, BytesView data)
      : out_(out), data_(data), coded_((kMaxLiterals * 10 + kMaxTriples * 54) / 8 + 64, '\0') {
    triples_.reserve(kMaxTriples);
    literals_.reserve(kMaxLiterals + kLiteralCoders);
  }

  /// The next `literals` bytes as they are, then `length` bytes from `distance` back.
  void add(std::size_t literals, std::size_t length, std::uint32_t distance) {
    for (; literals > kMaxLiteralRun; literals -= kMaxLiteralRun) addLiterals(kMaxLiteralRun);
    if (length == 0) {
      if (literals > 0) addLiterals(static_cast<std::uint32_t>(literals));
      return;
    }
    auto run = static_cast<std::uint32_t>(literals);
    for (; length > 0; run = 0) {
      const auto part = static_cast<std::uint32_t>(std::min<std::size_t>(length, kMaxMatch));
      addTriple(run, part, distance);
      length -= part;
    }
  }

  /// Appends what has been added since the last block.
  void flush();

  /// Whether the blocks so far leave no hope of a stream worth having.
  bool isHopeless() const noexcept {
    return blockStart_ >= kTrialBytes &&
           static_cast<double>(out_.size()) > kHopefulShare * static_cast<double>(blockStart_);
  }

 private:
  void addLiterals(std::uint32_t count) {
    // A distance is needed, but not used: the one before costs least and is known to be valid.
    addTriple(count, 0, 0);
  }
  void addTriple(std::uint32_t literals, std::uint32_t match, std::uint32_t distance) {
    if (triples_.size() == kMaxTriples || literals_.size() + literals > kMaxLiterals) flush();
    if (triples_.empty()) distance_ = 0;
    if (distance == 0 && distance_ == 0) distance = 1;
    const bool isRepeated = distance == distance_;
    if (distance != 0) distance_ = distance;
    triples_.push_back({static_cast<std::uint16_t>(literals), static_cast<std::uint16_t>(match),
                        isRepeated ? 0 : distance});
    literals_ += data_.substr(position_, literals);
    position_ += literals + match;
  }
  void codeLiterals(Payloads& payloads);
  void codeTriples(Payloads& payloads);
  void appendCoded(const Payloads& payloads, BytesView tables, std::size_t size);

  Bytes& out_;
  BytesView data_;
  std::size_t position_ = 0;    ///< of the end of the last triple
  std::size_t blockStart_ = 0;  ///< of the content of `triples_`
  std::uint32_t distance_ = 0;  ///< of the last triple in this block
  std::vector<Triple> triples_;
  Bytes literals_;
  Bytes coded_;  ///< the payloads, one behind the other
};

void BlockWriter::codeLiterals(Payloads& payloads) {
  literals_.resize((literals_.size() + kLiteralCoders - 1) / kLiteralCoders * kLiteralCoders);
  // Four counters a byte, so that equal bytes in a row do not wait for one another.
  std::array<std::array<std::uint32_t, kLiteralSymbols>, kLiteralCoders> counts{};
  for (std::size_t i = 0; i < literals_.size(); ++i) {
    ++counts[i % kLiteralCoders][static_cast<unsigned char>(literals_[i])];
  }
  for (std::size_t symbol = 0; symbol < kLiteralSymbols; ++symbol) {
    counts[0][symbol] += counts[1][symbol] + counts[2][symbol] + counts[3][symbol];
  }
  shareStates(counts[0], kLiteralStates, payloads.tables.literals);
  const auto table = encoderTable(payloads.tables.literals, kLiteralStates);
  BitWriter writer(coded_.data());
  for (std::size_t i = literals_.size(); i > 0;) {
    for (std::size_t coder = kLiteralCoders; coder-- > 0;) {
      --i;
      encodeSymbol(writer, table[static_cast<unsigned char>(literals_[i])], kLiteralStates,
                   payloads.literalStates[coder]);
    }
    writer.flush();
  }
  payloads.literalFiller = writer.finish();
  payloads.literalBytes = static_cast<std::size_t>(writer.end() - coded_.data());
}

void BlockWriter::codeTriples(Payloads& payloads) {
  std::array<std::uint32_t, kLengthSymbols> literalRunCounts{}, matchCounts{};
  std::array<std::uint32_t, kDistanceSymbols> distanceCounts{};
  for (const Triple& triple : triples_) {
    ++literalRunCounts[kLiteralRunSymbols[triple.literals]];
    ++matchCounts[kMatchSymbols[triple.match]];
    ++distanceCounts[distanceSymbol(triple.distance)];
  }
  FrequencyTables& tables = payloads.tables;
  shareStates(literalRunCounts, kLengthStates, tables.literalRuns);
  shareStates(matchCounts, kLengthStates, tables.matches);
  shareStates(distanceCounts, kDistanceStates, tables.distances);
  const auto literalRunTable = encoderTable(tables.literalRuns, kLengthStates);
  const auto matchTable = encoderTable(tables.matches, kLengthStates);
  const auto distanceTable = encoderTable(tables.distances, kDistanceStates);

  char* const begin = coded_.data() + payloads.literalBytes;
  store64(begin, 0);
  BitWriter writer(begin + kTriplesLead);
  const auto encodeValue = [&writer](std::uint32_t value, const ValueRange& range,
                                     const EncoderSymbol& step, unsigned states,
                                     std::uint32_t& state) {
    writer.put(value - range.base, range.extraBits);
    encodeSymbol(writer, step, states, state);
  };
  for (std::size_t i = triples_.size(); i-- > 0;) {
    const Triple& triple = triples_[i];
    const std::size_t distance = distanceSymbol(triple.distance);
    encodeValue(triple.distance, kDistances[distance], distanceTable[distance], kDistanceStates,
                payloads.distanceState);
    const std::size_t match = kMatchSymbols[triple.match];
    encodeValue(triple.match, kMatches[match], matchTable[match], kLengthStates,
                payloads.matchState);
    const std::size_t run = kLiteralRunSymbols[triple.literals];
    encodeValue(triple.literals, kLiteralRuns[run], literalRunTable[run], kLengthStates,
                payloads.literalRunState);
    writer.flush();
  }
  payloads.tripleFiller = writer.finish();
  payloads.tripleBytes = static_cast<std::size_t>(writer.end() - begin);
}

void BlockWriter::appendCoded(const Payloads& payloads, BytesView tables, std::size_t size) {
  const auto append64 = [this](std::uint64_t value) {
    appendLittleEndian32(out_, static_cast<std::uint32_t>(value));
    appendLittleEndian32(out_, static_cast<std::uint32_t>(value >> 32));
  };
  appendLittleEndian32(out_, kPackedTablesBlock);
  appendLittleEndian32(out_, static_cast<std::uint32_t>(size));
  append64(literals_.size() | std::uint64_t{payloads.literalBytes} << 20 |
           std::uint64_t{triples_.size()} << 40 | std::uint64_t{7 - payloads.literalFiller} << 60);
  std::uint64_t states = 0;
  for (std::size_t i = 0; i < kLiteralCoders; ++i) {
    states |= std::uint64_t{payloads.literalStates[i]} << (10 * i);
  }
  append64(states | std::uint64_t{payloads.tripleBytes} << 40 |
           std::uint64_t{7 - payloads.tripleFiller} << 60);
  append64((kPackedHeaderBytes + tables.size()) | std::uint64_t{payloads.literalRunState} << 32 |
           std::uint64_t{payloads.matchState} << 42 | std::uint64_t{payloads.distanceState} << 52);
  out_ += tables;
  out_ += BytesView(coded_).substr(0, payloads.literalBytes + payloads.tripleBytes);
}

void BlockWriter::flush() {
  if (triples_.empty()) return;
  Payloads payloads;
  codeLiterals(payloads);
  codeTriples(payloads);
  Bytes tables;
  appendPackedTables(tables, payloads.tables);
  const std::size_t size = position_ - blockStart_;
  const std::size_t codedBytes =
      kPackedHeaderBytes + tables.size() + payloads.literalBytes + payloads.tripleBytes;
  if (codedBytes < size + kStoredHeaderBytes) {
    appendCoded(payloads, tables, size);
  } else {
    appendLittleEndian32(out_, kStoredBlock);
    appendLittleEndian32(out_, static_cast<std::uint32_t>(size));
    out_ += data_.substr(blockStart_, size);
  }
  blockStart_ = position_;
  triples_.clear();
  literals_.clear();
}

/// A match and where it begins; `match.length` 0 for none.
struct PlacedMatch {
  std::size_t position = 0;
  Match match;
};

/// The match at `position`, or a better one that begins one or two bytes later, as long as that
/// gets better.
PlacedMatch findLazily(MatchFinder& finder, std::size_t position, std::uint32_t repeated) {
  finder.insertUpTo(position);
  PlacedMatch best{position, finder.find(position, repeated, 0, kTries)};
  for (std::size_t step = 1; best.match.length > 0 && step <= 2; ++step) {
    const bool isGood = best.match.length >= kGoodMatch;
    if (best.match.length >= MatchFinder::kLongEnough || (isGood && step == 2)) break;
    finder.insertUpTo(best.position + step);
    const int floor = best.match.gain + static_cast<int>(step);
    const Match later =
        finder.find(best.position + step, repeated, floor, isGood ? kTries / 4 : kTries);
    if (later.length == 0) continue;
    best = {best.position + step, later};
    step = 0;
  }
  return best;
}

std::optional<Bytes> encode(BytesView data) {
  Bytes out;
  BlockWriter writer(out, data);
  MatchFinder finder(data);
  std::size_t anchor = 0;  // of the literals not written yet
  std::uint32_t repeated = 0;
  for (std::size_t position = 0; position < data.size();) {
    auto [start, match] = findLazily(finder, position, repeated);
    if (match.length > 0) {
      while (start > anchor && start > match.distance &&
             data[start - 1] == data[start - 1 - match.distance]) {
        --start;
        ++match.length;
      }
      writer.add(start - anchor, match.length, match.distance);
      repeated = match.distance;
      position = anchor = start + match.length;
    } else {
      position = std::min(position + 1 + (position - anchor) / kLiteralsPerSkip, data.size());
      if (position - anchor < kMaxLiterals) continue;
      writer.add(position - anchor, 0, 0);
      anchor = position;
    }
    if (writer.isHopeless()) return std::nullopt;
  }
  writer.add(data.size() - anchor, 0, 0);
  writer.flush();
  appendLittleEndian32(out, kEndOfStream);
  if (out.size() >= data.size()) return std::nullopt;
  return out;
}

}  // namespace
}  // namespace lzfse

std::optional<Bytes> lzfseEncode(BytesView data) {
  if (data.empty() || data.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  return lzfse::encode(data);
}

}  // namespace ambervane
