#include "store/lzfse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "base/file.h"
#include "store/lzfse_format.h"
#include "store/lzfse_fse.h"
#include "tests/support/test_bytes.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kNoLimit = std::size_t{1} << 30;

/// Words of a small vocabulary: matches of all lengths at all distances, and literals.
Bytes prose(std::size_t size) {
  std::mt19937 random(5);
  Bytes text;
  while (text.size() < size) {
    std::mt19937 word(static_cast<unsigned>(random() % 4000));
    for (unsigned left = 2 + static_cast<unsigned>(word() % 9); left > 0; --left) {
      text += static_cast<char>('a' + word() % 26);
    }
    text += random() % 9 == 0 ? ".\r\n" : " ";
  }
  text.resize(size);
  return text;
}

/// A second reading of docs/format/lzfse.md, for what the encoder writes: bit by bit, without
/// tables, and with every rule the page gives as something to check. The first broken one is
/// thrown.
class StrictReader {
 public:
  explicit StrictReader(BytesView stream) : stream_(stream) {}

  Bytes read() {
    for (;;) {
      const BytesView magic = take(4);
      if (magic == "bvx$") break;
      if (magic == "bvx-") {
        content_ += take(number(4));
      } else {
        require(magic == "bvx2", "magic");
        readBlock();
      }
    }
    require(at_ == stream_.size(), "bytes behind the end");
    return content_;
  }

 private:
  using Bits = std::vector<bool>;
  struct Coder {
    std::vector<unsigned> frequencies;
    unsigned states;
  };

  static void require(bool rule, const char* words) {
    if (!rule) throw std::runtime_error(words);
  }
  BytesView take(std::size_t size) {
    require(size <= stream_.size() - at_, "cut");
    at_ += size;
    return stream_.substr(at_ - size, size);
  }
  std::uint64_t number(std::size_t bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
      value += std::uint64_t{static_cast<unsigned char>(take(1)[0])} << (8 * i);
    }
    return value;
  }
  static Bits bitsOf(BytesView bytes) {
    Bits bits;
    for (const char c : bytes) {
      for (int i = 0; i < 8; ++i) bits.push_back((c >> i & 1) != 0);
    }
    return bits;
  }
  /// The bits of a payload without its filler, from `fields` of a header word.
  static Bits payloadBits(BytesView payload, std::uint64_t fillerField) {
    require(fillerField <= 7, "filler field");
    Bits bits = bitsOf(payload);
    for (auto filler = 7 - fillerField; filler > 0; --filler) {
      require(!bits.empty() && !bits.back(), "filler is zeros");
      bits.pop_back();
    }
    return bits;
  }
  static unsigned pop(Bits& bits, unsigned count) {
    unsigned value = 0;
    for (; count > 0; --count) {
      require(!bits.empty(), "bits run out");
      value = value << 1 | (bits.back() ? 1U : 0U);
      bits.pop_back();
    }
    return value;
  }

  Coder readTable(std::size_t symbols, unsigned states, BytesView packed, std::size_t& bit) {
    const auto low = [&](unsigned skip, unsigned count) {
      unsigned value = 0;
      for (unsigned i = 0; i < count; ++i) {
        const std::size_t from = bit + skip + i;
        const auto byte = from / 8 < packed.size() ? packed[from / 8] : '\0';
        value |= static_cast<unsigned>(byte >> (from % 8) & 1) << i;
      }
      return value;
    };
    Coder coder{{}, states};
    for (std::size_t i = 0; i < symbols; ++i) {
      unsigned frequency = 0, width = 0;
      if (low(0, 1) == 0)
        frequency = low(1, 1), width = 2;
      else if (low(0, 3) == 1)
        frequency = 2, width = 3;
      else if (low(0, 3) == 5)
        frequency = 3, width = 3;
      else if (low(0, 3) == 3)
        frequency = low(3, 2) + 4, width = 5;
      else if (low(0, 4) == 7)
        frequency = low(4, 4) + 8, width = 8;
      else
        frequency = low(4, 10) + 24, width = 14;
      bit += width;
      coder.frequencies.push_back(frequency);
    }
    require(std::accumulate(coder.frequencies.begin(), coder.frequencies.end(), 0U) == states,
            "all states are shared out");
    return coder;
  }
  /// The symbol of `state`; its extra bits are taken below those of the state.
  static unsigned decode(const Coder& coder, unsigned& state, Bits& bits) {
    require(state < coder.states, "state");
    unsigned symbol = 0, below = 0;
    while (state >= below + coder.frequencies[symbol]) below += coder.frequencies[symbol++];
    unsigned next = state - below + coder.frequencies[symbol];
    while (next < coder.states) next = next << 1 | pop(bits, 1);
    state = next - coder.states;
    return symbol;
  }

  void readBlock() {
    const std::size_t start = at_ - 4;
    const std::size_t contentBytes = number(4);
    const std::uint64_t a = number(8), b = number(8), c = number(8);
    const auto field = [](std::uint64_t word, unsigned from, unsigned count) {
      return static_cast<unsigned>(word >> from & ((std::uint64_t{1} << count) - 1));
    };
    require(a >> 63 == 0 && b >> 63 == 0 && c >> 62 == 0, "reserved bits");
    const unsigned literalCount = field(a, 0, 20), triples = field(a, 40, 20);
    require(literalCount <= 40000 && literalCount % 4 == 0 && triples <= 10000, "counts");
    require(field(c, 0, 32) > 32 && field(c, 0, 32) < 32 + 640, "header size");
    const BytesView packed = take(field(c, 0, 32) - 32);
    require(start + field(c, 0, 32) == at_, "header size");
    std::size_t bit = 0;
    const Coder runs = readTable(20, 64, packed, bit), matches = readTable(20, 64, packed, bit);
    const Coder distances = readTable(64, 256, packed, bit);
    const Coder literals = readTable(256, 1024, packed, bit);
    require((bit + 7) / 8 == packed.size(), "nothing behind the tables");

    Bits bits = payloadBits(take(field(a, 20, 20)), field(a, 60, 3));
    std::array<unsigned, 4> states{};
    for (unsigned i = 0; i < 4; ++i) states[i] = field(b, 10 * i, 10);
    Bytes text;
    for (unsigned i = 0; i < literalCount; ++i) {
      text += static_cast<char>(decode(literals, states[i % 4], bits));
    }
    require(bits.empty() && states == std::array<unsigned, 4>{}, "literals end where they began");

    require(take(8) == Bytes(8, '\0'), "lead");
    bits = payloadBits(take(field(b, 40, 20) - 8), field(b, 60, 3));
    copy(triples, text, contentBytes, bits,
         [&, run = field(c, 32, 10), match = field(c, 42, 10),
          distance = field(c, 52, 10)](int which) mutable {
           static constexpr std::array<unsigned, 5> kRunExtra = {0, 2, 3, 5, 8};
           static constexpr std::array<unsigned, 5> kMatchExtra = {0, 3, 5, 8, 11};
           if (which == 2) {
             const unsigned symbol = decode(distances, distance, bits);
             return ((4 + symbol % 4) << symbol / 4) - 4 + pop(bits, symbol / 4);
           }
           if (which == 3) return run + match + distance;
           const unsigned symbol =
               which == 0 ? decode(runs, run, bits) : decode(matches, match, bits);
           const auto& extra = which == 0 ? kRunExtra : kMatchExtra;
           if (symbol < 16) return symbol;
           unsigned base = 16;
           for (unsigned i = 16; i < symbol; ++i) base += 1U << extra[i - 15];
           return base + pop(bits, extra[symbol - 15]);
         });
  }

  /// `next` gives a literal run (0), a match (1), a distance (2) or the sum of the states (3).
  template <typename Next>
  void copy(unsigned triples, BytesView text, std::size_t contentBytes, const Bits& bits,
            Next next) {
    const std::size_t start = content_.size();
    std::size_t distance = 0;
    for (; triples > 0; --triples) {
      const std::size_t run = next(0), match = next(1), coded = next(2);
      require(run <= text.size(), "literals run out");
      require(coded != distance, "a repeated distance is 0");
      if (coded != 0) distance = coded;
      content_ += text.substr(0, run);
      text.remove_prefix(run);
      require(distance > 0 && distance <= 262139 && distance <= content_.size(), "distance");
      for (std::size_t i = 0; i < match; ++i) content_ += content_[content_.size() - distance];
    }
    require(bits.empty() && next(3) == 0, "triples end where they began");
    require(text.size() < 4 && text == Bytes(text.size(), '\0'), "padding");
    require(content_.size() - start == contentBytes, "content size");
  }

  BytesView stream_;
  std::size_t at_ = 0;
  Bytes content_;
};

void expectRoundTrip(const Bytes& data) {
  const auto stream = lzfseEncode(data);
  if (!stream) return;
  EXPECT_LT(stream->size(), data.size());
  EXPECT_TRUE(StrictReader(*stream).read() == data);
  EXPECT_TRUE(lzfseDecode(*stream, data.size()) == data);
  EXPECT_EQ(lzfseDecode(*stream, data.size() - 1), std::nullopt);
}

TEST(Lzfse, samplePairs) {
  const fs::path folder = fs::path(__FILE__).parent_path() / "../../../shared/samples/lzfse";
  if (!fs::exists(folder)) return;  // nothing to compare with outside of the development machine
  std::size_t pairs = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() != ".lzfse") continue;
    SCOPED_TRACE(entry.path().filename());
    const Bytes plain = readFile(fs::path(entry.path()).replace_extension(".plain"));
    const Bytes stream = readFile(entry.path());
    EXPECT_TRUE(lzfseDecode(stream, plain.size()) == plain);
    expectRoundTrip(plain);
    if (plain.size() >= 32768) {
      EXPECT_LE(lzfseEncode(plain).value_or("").size(), stream.size() * 101 / 100);
    }
    ++pairs;
  }
  EXPECT_EQ(pairs, 14U);
}

TEST(Lzfse, roundTrips) {
  const Bytes text = prose(400000);
  const Bytes random = noise(50000);
  const struct {
    const char* name;
    Bytes data;
    std::size_t atMost;  ///< bytes of the stream; 0: none
  } kCases[] = {
      {"empty", "", 0},
      {"oneByte", "a", 0},
      {"noise", noise(300000), 0},
      {"noiseBelowTheTrial", random, 0},
      {"almostNoise", noise(300000, 1, 250), 0},
      {"zeros", Bytes(20000, '\0'), 160},
      {"manyZeros", Bytes(5000000, '\0'), 4300},
      {"prose", text, 148000},
      {"moreLiteralsThanABlockHolds", noise(200000, 1, 64), 153000},
      {"literalsThenNoise", noise(41000, 1, 16) + random, 73000},
      {"farthestMatch", random + Bytes(262139 - 50000, '\0') + random, 51500},
      {"beyondTheFarthestMatch", random + Bytes(262140 - 50000, '\0') + random, 101500},
      {"longMatchAcrossBlocks", text + text.substr(200000), 150000},
      {"manyShortMatches", noise(150000, 1, 2), 26000},
      {"literalsAtTheEnd", Bytes(4000, 'x') + random.substr(0, 700), 910},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    expectRoundTrip(c.data);
    const auto stream = lzfseEncode(c.data);
    EXPECT_EQ(stream.has_value(), c.atMost > 0);
    EXPECT_LE(stream.value_or("").size(), c.atMost);
  }
  // Every way to end: with literals, within a match, with fewer bytes than a hash takes.
  for (std::size_t size = 0; size < 600; ++size) {
    SCOPED_TRACE(size);
    expectRoundTrip(Bytes(300, '-') + text.substr(0, 40) + text.substr(0, size));
    expectRoundTrip(text.substr(0, 20) + Bytes(size, '='));
  }
}

/// `stream`, which is one block of packed tables and the end, as a block of plain tables.
Bytes withPlainTables(const Bytes& stream) {
  const auto field = [&](std::size_t from, unsigned bit, unsigned count) {
    return static_cast<std::uint32_t>(lzfse::load64(stream.data() + from) >> bit &
                                      ((std::uint64_t{1} << count) - 1));
  };
  const std::size_t headerBytes = field(24, 0, 32);
  Bytes plain = "bvx1" + stream.substr(4, 4);
  appendLittleEndian32(plain, field(8, 20, 20) + field(16, 40, 20));
  appendLittleEndian32(plain, field(8, 0, 20));
  appendLittleEndian32(plain, field(8, 40, 20));
  appendLittleEndian32(plain, field(8, 20, 20));
  appendLittleEndian32(plain, field(16, 40, 20));
  const auto append16 = [&plain](std::uint32_t value) {
    appendLittleEndian16(plain, static_cast<std::uint16_t>(value));
  };
  appendLittleEndian32(plain, field(8, 60, 3) - 7);
  for (unsigned i = 0; i < 4; ++i) append16(field(16, 10 * i, 10));
  appendLittleEndian32(plain, field(16, 60, 3) - 7);
  for (unsigned i = 0; i < 3; ++i) append16(field(24, 32 + 10 * i, 10));
  lzfse::FrequencyTables tables;
  EXPECT_TRUE(lzfse::readPackedTables(BytesView(stream).substr(32, headerBytes - 32), tables));
  lzfse::FrequencyTables::each(tables, [&](auto table, unsigned) {
    for (const std::uint16_t frequency : table) append16(frequency);
  });
  plain.append(2, '\0');
  return plain + stream.substr(headerBytes);
}

TEST(Lzfse, plainTables) {
  const Bytes data = prose(6000);
  const Bytes plain = withPlainTables(*lzfseEncode(data));
  EXPECT_EQ(lzfseDecode(plain, kNoLimit), data);
  for (std::size_t size = 0; size < plain.size(); ++size) {
    EXPECT_EQ(lzfseDecode(BytesView(plain).substr(0, size), kNoLimit), std::nullopt) << size;
  }
}

TEST(Lzfse, documentedStreams) {
  const struct {
    const char* name;
    Bytes stream;  ///< hexadecimal
    std::optional<Bytes> content;
  } kCases[] = {
      {"nothing", "62767824", ""},
      {"noEnd", "", std::nullopt},
      {"unknownMagic", "6276783362767824", std::nullopt},
      {"bytesBehindTheEnd", "6276782400", std::nullopt},
      {"oneBlock", "6276782d0700000046726f6d3a206162767824", "From: a"},
      {"twoBlocks",
       "6276782d01000000616276782d020000006263"
       "62767824",
       "abc"},
      {"codedBlock",
       "62767832e8030000040010000001001000030410400a002082000000000000003c0a0000000000000000003c0a3"
       "c3a" +
           Bytes(30, '0') + "f0e802" + Bytes(58, '0') + "f0e8" + Bytes(86, '0') + "af0262767824",
       Bytes(1000, 'z')},
      {"cut", "6276782d0800000046726f6d3a2061", std::nullopt},
      {"fourGigabytes", "6276782dffffffff62767824", std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(lzfseDecode(unhex(c.stream), kNoLimit), c.content);
  }
}

TEST(Lzfse, byteCode) {
  const Bytes end = "0600000000000000";
  const struct {
    const char* name;
    std::uint32_t size;
    Bytes code;  ///< hexadecimal
    std::optional<Bytes> content;
  } kCases[] = {
      {"hyphens", 64, "68012df025e22d2d" + end, Bytes(64, '-')},
      {"smallDistance", 8,
       "e3616263"
       "480264" +
           end,
       "abcdcdcd"},
      {"mediumDistance", 6, "a8060061" + end, "aaaaaa"},
      {"largeDistance", 4, "47010061" + end, "aaaa"},
      {"previousDistance", 8, "470100614662" + end, "aaaabbbb"},
      {"match", 5, "47010061f1" + end, "aaaaa"},
      {"longMatch", 20, "47010061f000" + end, Bytes(20, 'a')},
      {"longLiterals", 16, "e00030313233343536373839414243444546" + end, "0123456789ABCDEF"},
      {"noOperation", 1, "0e16e161" + end, "a"},
      {"endIsNotLookedInto", 1, "e16106ffffffffffffff", "a"},
      {"previousDistanceWithoutOne", 4, "4661" + end, std::nullopt},
      {"matchWithoutDistance", 2, "e161f1" + end, std::nullopt},
      {"distanceIsZero", 4, "400061" + end, std::nullopt},
      {"distanceBeforeTheStart", 4, "400261" + end, std::nullopt},
      {"literalsRunOut", 16, "e00030" + end, std::nullopt},
      {"opcodeIsCut", 4, "4701", std::nullopt},
      {"undefinedLowOpcode", 1, "1ee161" + end, std::nullopt},
      {"undefinedHighOpcode", 1, "d0e161" + end, std::nullopt},
      {"tooMuch", 1, "e26161" + end, std::nullopt},
      {"tooLittle", 3, "e26161" + end, std::nullopt},
      {"noEndOpcode", 1, "e161", std::nullopt},
      {"endOpcodeIsCut", 1, "e161060000", std::nullopt},
      {"codeBehindTheEnd", 1, "e161" + end + "0e", std::nullopt},
      {"fourGigabytes", 0xffffffff, end, std::nullopt},
  };
  const auto stream = [](std::uint32_t size, const Bytes& code) {
    Bytes block = "bvxn";
    appendLittleEndian32(block, size);
    appendLittleEndian32(block, static_cast<std::uint32_t>(unhex(code).size()));
    return block + unhex(code);
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(lzfseDecode(stream(c.size, c.code) + "bvx$", kNoLimit), c.content);
  }
  // Matches reach into the block before; the previous distance does not.
  EXPECT_EQ(lzfseDecode(stream(3, "e3616263" + end) + stream(3, "0003" + end) + "bvx$", kNoLimit),
            "abcabc");
  EXPECT_EQ(lzfseDecode(stream(4, "47010061" + end) + stream(1, "f1" + end) + "bvx$", kNoLimit),
            std::nullopt);
}

TEST(Lzfse, damagedStreams) {
  for (const Bytes& data : {prose(3000), prose(500) + Bytes(90000, ' '), noise(9000, 1, 5)}) {
    const Bytes stream = *lzfseEncode(data);
    for (std::size_t at = 0; at < stream.size(); ++at) {
      EXPECT_EQ(lzfseDecode(BytesView(stream).substr(0, at), kNoLimit), std::nullopt) << at;
      for (const int flip : {0x01, 0x10, 0x80, 0xff}) {
        Bytes damaged = stream;
        damaged[at] = static_cast<char>(damaged[at] ^ flip);
        const auto result = lzfseDecode(damaged, 2 * data.size());
        // The content has no checksum; its size is what the triples must add up to.
        EXPECT_EQ(result.value_or(data).size(), data.size()) << at;
      }
    }
  }
}

TEST(Lzfse, sizesAreProvedBeforeMemoryIsTaken) {
  Bytes stream = *lzfseEncode(prose(5000));
  for (std::size_t at = 4; at < 8; ++at) stream[at] = '\x7f';  // content of 2 GiB
  EXPECT_EQ(lzfseDecode(stream, ~std::size_t{0}), std::nullopt);
  const Bytes zeros(5000000, '\0');
  EXPECT_LE(lzfseDecode(*lzfseEncode(zeros), ~std::size_t{0}).value_or("").capacity(),
            2 * zeros.size() + 100);
}

}  // namespace
}  // namespace ambervane
