// A stream is decoded block by block, and each coded block in three passes: all literals, all
// triples, then the copies. Thus the sizes a block's header promises are proved by its triples
// before a byte is allocated for them, and the copies need no check but that of the distance.
#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

#include "store/lzfse.h"
#include "store/lzfse_byte_code.h"
#include "store/lzfse_format.h"
#include "store/lzfse_fse.h"

namespace ambervane {
namespace lzfse {
namespace {

/// How far the copies may write past the end of what they copy.
constexpr std::size_t kSlack = 32;
/// Sound payloads are no longer: 10 bits a literal, 54 bits a triple.
constexpr std::size_t kMaxLiteralPayload = kMaxLiterals * 10 / 8;
constexpr std::size_t kMaxTriplePayload = kMaxTriples * 54 / 8 + kTriplesLead;

/// One symbol of a literal run, match length or distance with its extra bits.
struct ValueState {
  std::uint32_t base = 0;  ///< of the value
  std::uint16_t next = 0;
  std::uint8_t bits = 0;  ///< of the state, above the extra bits
  std::uint8_t extraBits = 0;
};

struct Triple {
  std::uint32_t literals = 0, match = 0, distance = 0;
};

struct BlockHeader {
  std::size_t contentBytes = 0;
  std::size_t literals = 0, triples = 0;
  std::size_t literalBytes = 0, tripleBytes = 0;    ///< of the payloads
  std::size_t literalFiller = 0, tripleFiller = 0;  ///< bits at the end of the payloads
  std::array<std::uint32_t, kLiteralCoders> literalStates{};
  std::uint32_t literalRunState = 0, matchState = 0, distanceState = 0;
  FrequencyTables tables;
};

std::uint32_t bits(std::uint64_t word, unsigned from, unsigned count) noexcept {
  return static_cast<std::uint32_t>(word >> from & ((std::uint64_t{1} << count) - 1));
}

/// Reads the header that begins `rest` and cuts it off; false when it is damaged.
bool readPackedHeader(BytesView& rest, BlockHeader& header) {
  if (rest.size() < kPackedHeaderBytes) return false;
  const std::uint64_t a = load64(rest.data() + 8);
  const std::uint64_t b = load64(rest.data() + 16);
  const std::uint64_t c = load64(rest.data() + 24);
  header.contentBytes = load32(rest.data() + 4);
  header.literals = bits(a, 0, 20);
  header.literalBytes = bits(a, 20, 20);
  header.triples = bits(a, 40, 20);
  header.literalFiller = 7 - bits(a, 60, 3);
  for (unsigned i = 0; i < kLiteralCoders; ++i) header.literalStates[i] = bits(b, 10 * i, 10);
  header.tripleBytes = bits(b, 40, 20);
  header.tripleFiller = 7 - bits(b, 60, 3);
  const std::size_t headerBytes = bits(c, 0, 32);
  header.literalRunState = bits(c, 32, 10);
  header.matchState = bits(c, 42, 10);
  header.distanceState = bits(c, 52, 10);
  if (headerBytes < kPackedHeaderBytes || headerBytes > rest.size()) return false;
  const BytesView packed = rest.substr(kPackedHeaderBytes, headerBytes - kPackedHeaderBytes);
  rest.remove_prefix(headerBytes);
  return packed.empty() || readPackedTables(packed, header.tables);
}

bool readPlainHeader(BytesView& rest, BlockHeader& header) {
  if (rest.size() < kPlainHeaderBytes) return false;
  header.contentBytes = load32(rest.data() + 4);
  const std::size_t payloadBytes = load32(rest.data() + 8);
  header.literals = load32(rest.data() + 12);
  header.triples = load32(rest.data() + 16);
  header.literalBytes = load32(rest.data() + 20);
  header.tripleBytes = load32(rest.data() + 24);
  // Stored as their negatives.
  header.literalFiller = 0U - load32(rest.data() + 28);
  header.tripleFiller = 0U - load32(rest.data() + 40);
  const auto load16 = [&](std::size_t at) { return readLittleEndian16(rest, at); };
  for (std::size_t i = 0; i < kLiteralCoders; ++i) header.literalStates[i] = load16(32 + 2 * i);
  header.literalRunState = load16(44);
  header.matchState = load16(46);
  header.distanceState = load16(48);
  std::size_t at = 50;
  FrequencyTables::each(header.tables, [&](std::span<std::uint16_t> table, unsigned) {
    for (std::uint16_t& frequency : table) frequency = load16(at), at += 2;
  });
  rest.remove_prefix(kPlainHeaderBytes);
  return payloadBytes == header.literalBytes + header.tripleBytes && fitsStates(header.tables);
}

bool isSound(const BlockHeader& header, std::size_t available) noexcept {
  for (const std::uint32_t state : header.literalStates) {
    if (state >= kLiteralStates) return false;
  }
  return header.literals <= kMaxLiterals && header.literals % kLiteralCoders == 0 &&
         header.triples <= kMaxTriples && header.literalBytes <= kMaxLiteralPayload &&
         header.tripleBytes >= kTriplesLead && header.tripleBytes <= kMaxTriplePayload &&
         header.literalBytes + header.tripleBytes <= available && header.literalFiller <= 7 &&
         header.tripleFiller <= 7 && 8 * header.literalBytes >= header.literalFiller &&
         8 * (header.tripleBytes - kTriplesLead) >= header.tripleFiller &&
         header.literalRunState < kLengthStates && header.matchState < kLengthStates &&
         header.distanceState < kDistanceStates;
}

template <std::size_t kSymbols>
void fillValueTable(std::span<const std::uint16_t> frequencies, const ValueRanges<kSymbols>& ranges,
                    std::span<ValueState> table) {
  std::array<DecoderState, kDistanceStates> states;
  const auto used = std::span(states).first(table.size());
  fillDecoderTable(frequencies, used);
  for (std::size_t i = 0; i < table.size(); ++i) {
    const ValueRange& range = ranges[used[i].symbol];
    table[i] = {range.base, used[i].next, used[i].bits, range.extraBits};
  }
}

std::uint32_t decodeValue(BackwardBitReader& reader, std::span<const ValueState> table,
                          std::uint32_t& state) noexcept {
  const ValueState& entry = table[state];
  state = entry.next + reader.take(entry.bits);
  return entry.base + reader.take(entry.extraBits);
}

bool anyOwned(std::span<const std::uint16_t> table) noexcept {
  for (const std::uint16_t frequency : table) {
    if (frequency > 0) return true;
  }
  return false;
}

/// Whether the `filler` highest bits of the last byte are zeros.
bool endsInZeros(BytesView payload, std::size_t filler) noexcept {
  return filler == 0 || static_cast<unsigned char>(payload.back()) >> (8 - filler) == 0;
}

/// Copies `count` bytes in steps of 16; reads and writes up to 15 bytes more.
void copyAhead(char* to, const char* from, std::size_t count) noexcept {
  for (std::size_t done = 0; done < count; done += 16) std::memcpy(to + done, from + done, 16);
}

/// Copies `count` bytes from `distance` back, each before the next one is read. Writes up to 31
/// bytes more.
void copyMatch(char* to, std::size_t distance, std::size_t count) noexcept {
  const char* from = to - distance;
  // The pattern repeats, so it is laid once byte by byte until a copy of 16 cannot overlap itself.
  while (distance < 16 && count > 0) {
    const std::size_t step = std::min(distance, count);
    for (std::size_t i = 0; i < step; ++i) to[i] = from[i];
    to += step;
    count -= step;
    distance += step;
  }
  copyAhead(to, from, count);
}

class StreamDecoder {
 public:
  explicit StreamDecoder(std::size_t limit) noexcept : limit_(limit) {}

  std::optional<Bytes> decode(BytesView stream) {
    while (stream.size() >= 4) {
      const std::uint32_t magic = load32(stream.data());
      if (magic == kEndOfStream) {
        if (stream.size() != 4) return std::nullopt;
        out_.resize(filled_);
        return std::move(out_);
      }
      const bool sound = magic == kStoredBlock         ? takeStored(stream)
                         : magic == kByteCodeBlock     ? takeByteCode(stream)
                         : magic == kPackedTablesBlock ? takeCoded(stream, readPackedHeader)
                         : magic == kPlainTablesBlock  ? takeCoded(stream, readPlainHeader)
                                                       : false;
      if (!sound) return std::nullopt;
    }
    return std::nullopt;
  }

 private:
  bool takeStored(BytesView& rest) {
    if (rest.size() < kStoredHeaderBytes) return false;
    const std::size_t size = load32(rest.data() + 4);
    rest.remove_prefix(kStoredHeaderBytes);
    if (size > rest.size() || size > limit_ - filled_) return false;
    out_.resize(filled_);
    out_.append(rest.substr(0, size));
    filled_ += size;
    rest.remove_prefix(size);
    return true;
  }

  bool takeByteCode(BytesView& rest) {
    if (rest.size() < kByteCodeHeaderBytes) return false;
    const std::size_t size = load32(rest.data() + 4);
    const std::size_t codeBytes = load32(rest.data() + 8);
    rest.remove_prefix(kByteCodeHeaderBytes);
    if (codeBytes > rest.size() || size > limit_ - filled_) return false;
    out_.resize(filled_);
    if (!appendByteCode(out_, rest.substr(0, codeBytes), size)) return false;
    filled_ += size;
    rest.remove_prefix(codeBytes);
    return true;
  }

  bool takeCoded(BytesView& rest, bool (*readHeader)(BytesView&, BlockHeader&)) {
    BlockHeader header;
    if (!readHeader(rest, header) || !isSound(header, rest.size()) ||
        header.contentBytes > limit_ - filled_) {
      return false;
    }
    if (!decodeLiterals(rest.substr(0, header.literalBytes), header)) return false;
    rest.remove_prefix(header.literalBytes);
    if (!decodeTriples(rest.substr(0, header.tripleBytes), header)) return false;
    rest.remove_prefix(header.tripleBytes);
    out_.resize(filled_ + header.contentBytes + kSlack);
    return copyContent();
  }

  /// `payload` where it may be read beyond both its ends.
  const char* withMargins(BytesView payload) {
    payload_.assign(BackwardBitReader::kMargin, '\0');
    payload_ += payload;
    payload_.append(BackwardBitReader::kMargin, '\0');
    return payload_.data() + BackwardBitReader::kMargin;
  }

  bool decodeLiterals(BytesView payload, const BlockHeader& header) {
    literals_.resize(header.literals + kSlack);
    if ((header.literals > 0 && !anyOwned(header.tables.literals)) ||
        !endsInZeros(payload, header.literalFiller)) {
      return false;
    }
    std::array<DecoderState, kLiteralStates> table;
    fillDecoderTable(header.tables.literals, table);
    BackwardBitReader reader(withMargins(payload), 8 * payload.size() - header.literalFiller);
    std::array<std::uint32_t, kLiteralCoders> states = header.literalStates;
    for (std::size_t i = 0; i < header.literals; i += kLiteralCoders) {
      reader.refill();
      for (std::size_t coder = 0; coder < kLiteralCoders; ++coder) {
        const DecoderState& entry = table[states[coder]];
        literals_[i + coder] = static_cast<char>(entry.symbol);
        states[coder] = entry.next + reader.take(entry.bits);
      }
      if (!reader.advance()) return false;
    }
    return states == decltype(states){} && reader.unread() == 0;
  }

  bool decodeTriples(BytesView payload, const BlockHeader& header) {
    const FrequencyTables& tables = header.tables;
    triples_.resize(header.triples);
    if (header.triples > 0 &&
        !(anyOwned(tables.literalRuns) && anyOwned(tables.matches) && anyOwned(tables.distances))) {
      return false;
    }
    std::array<ValueState, kLengthStates> literalRuns, matches;
    std::array<ValueState, kDistanceStates> distances;
    fillValueTable(tables.literalRuns, kLiteralRuns, literalRuns);
    fillValueTable(tables.matches, kMatches, matches);
    fillValueTable(tables.distances, kDistances, distances);
    payload.remove_prefix(kTriplesLead);
    if (!endsInZeros(payload, header.tripleFiller)) return false;
    BackwardBitReader reader(withMargins(payload), 8 * payload.size() - header.tripleFiller);
    std::uint32_t literalRunState = header.literalRunState;
    std::uint32_t matchState = header.matchState;
    std::uint32_t distanceState = header.distanceState;
    std::uint32_t distance = 0;
    std::size_t allLiterals = 0, allMatches = 0;
    for (Triple& triple : triples_) {
      reader.refill();
      triple.literals = decodeValue(reader, literalRuns, literalRunState);
      triple.match = decodeValue(reader, matches, matchState);
      const std::uint32_t coded = decodeValue(reader, distances, distanceState);
      if (!reader.advance()) return false;
      if (coded != 0) distance = coded;
      triple.distance = distance;
      allLiterals += triple.literals;
      allMatches += triple.match;
    }
    return (literalRunState | matchState | distanceState) == 0 && reader.unread() == 0 &&
           allLiterals <= header.literals && allLiterals + allMatches == header.contentBytes;
  }

  /// Writes what the triples say to `out_`, which has room for it.
  bool copyContent() noexcept {
    char* to = out_.data() + filled_;
    const char* literals = literals_.data();
    for (const Triple& triple : triples_) {
      copyAhead(to, literals, triple.literals);
      to += triple.literals;
      literals += triple.literals;
      const auto produced = static_cast<std::size_t>(to - out_.data());
      if (triple.distance == 0 || triple.distance > produced) return false;
      copyMatch(to, triple.distance, triple.match);
      to += triple.match;
    }
    filled_ = static_cast<std::size_t>(to - out_.data());
    return true;
  }

  std::size_t limit_;
  Bytes out_;  ///< content of all blocks so far, and slack
  std::size_t filled_ = 0;
  Bytes payload_, literals_;
  std::vector<Triple> triples_;
};

}  // namespace
}  // namespace lzfse

std::optional<Bytes> lzfseDecode(BytesView stream, std::size_t limit) {
  return lzfse::StreamDecoder(limit).decode(stream);
}

}  // namespace ambervane
