#include "store/codec.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "base/digest.h"
#include "store/brotli_codec.h"
#include "store/compressibility.h"
#include "store/deflate.h"
#include "store/lzfse.h"
#include "store/seed_dictionary.h"
#include "store/xz_codec.h"
#include "tests/support/test_bytes.h"

namespace ambervane {
namespace {

const Bytes kGreeting =
    "Mit freundlichen Grüssen\nContent-Disposition: inline\nMit freundlichen "
    "Grüssen\n";

TEST(SeedDictionary, isPartOfTheFormat) {
  EXPECT_EQ(seedDictionary().size(), 1408U);
  EXPECT_EQ(sha256Hex(seedDictionary()),
            "1c7997c71226ece0363cf059e854f1c5e1576963cd5844c0ea4fcfc35ca6e1fd");
}

/// `noise` with pieces of text strewn in: `share` of it in `pieces` places.
Bytes strewn(std::size_t size, double share, std::size_t pieces) {
  Bytes bytes = noise(size);
  const auto length = static_cast<std::size_t>(static_cast<double>(size) * share) / pieces;
  Bytes text;
  while (text.size() < length) text += kGreeting;
  for (std::size_t i = 0; i < pieces; ++i) {
    bytes.replace(i * (size / pieces), length, text, 0, length);
  }
  return bytes;
}

TEST(Compressor, whatCanBeSavedIsNotOverlooked) {
  Bytes sevenBit = noise(100000);
  for (char& c : sevenBit) c = static_cast<char>(c & 0x7f);
  const struct {
    const char* name;
    Bytes data;
    bool compresses;
  } kCases[] = {
      {"noise", noise(300000), false},
      {"smallNoise", noise(4096), false},
      {"oneBitLess", sevenBit, true},
      {"textAtTheEnd", noise(300000) + strewn(20000, 1, 1), true},
      {"textInTheMiddle", noise(150000) + strewn(20000, 1, 1) + noise(150000), true},
      {"textInManyPlaces", strewn(300000, 0.06, 40), true},
      {"repeatedNear", noise(15000) + noise(15000), true},
      {"repeatedFar", noise(200000) + noise(200000).substr(0, 30000), true},
      {"shortRuns", strewn(100000, 0.3, 4000), true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    // The codecs themselves are asked, so that the expectation cannot be wrong.
    const auto limit = static_cast<double>(c.data.size()) * Compressor::kWorthwhileShare;
    const auto deflated = Deflate::compress(c.data, "");
    const auto lzfse = lzfseEncode(c.data);
    ASSERT_TRUE(deflated);
    const std::size_t best = std::min(deflated->size(), lzfse ? lzfse->size() : c.data.size());
    ASSERT_EQ(static_cast<double>(best) <= limit, c.compresses);
    EXPECT_EQ(looksIncompressible(c.data), !c.compresses);
  }
}

TEST(Compressor, choosesCodec) {
  const struct {
    const char* name;
    Bytes data;
    Codec codec;
  } kCases[] = {
      {"empty", "", Codec::stored},
      {"127Bytes", Bytes(127, 'a'), Codec::stored},
      {"128Bytes", Bytes(128, 'a'), Codec::deflateDictionary},
      {"128BytesOfNoise", noise(128), Codec::stored},
      {"incompressible", noise(1000000), Codec::stored},
      {"savesTwoPerCent", noise(29400) + Bytes(600, '\0'), Codec::stored},
      {"savesFivePerCent", noise(28500) + Bytes(1500, '\0'), Codec::deflateDictionary},
      {"text", kGreeting + kGreeting, Codec::deflateDictionary},
      {"largestLeftToDeflate", Bytes(32767, 'a'), Codec::deflateDictionary},
  };
  for (const auto effort :
       {CompressionEffort::fast, CompressionEffort::balanced, CompressionEffort::smallest}) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(std::string(c.name) + " " + std::string(rawValue(effort)));
      const CompressedRecord record = Compressor::compress(c.data, seedDictionary(), effort);
      EXPECT_EQ(record.codec, c.codec);
      EXPECT_EQ(record.originalLength, c.data.size());
      EXPECT_EQ(Compressor::decompress(record.payload, record.codec, seedDictionary(),
                                       record.originalLength),
                c.data);
    }
  }
}

/// Lines of a table: digits of which most repeat a column's.
Bytes table(std::size_t size) {
  std::mt19937 random(3);
  Bytes text;
  for (unsigned row = 0; text.size() < size; ++row) {
    text += "2024-03-" + std::to_string(10 + row / 90 % 20) + ";" + std::to_string(random() % 50) +
            ";Zürich;" + std::to_string(1000 + random() % 9) + ".00\n";
  }
  text.resize(size);
  return text;
}

TEST(Compressor, triesStrongerCodecsOnLargeRecords) {
  using enum CompressionEffort;
  const Bytes lines = table(200000);
  // Repeats itself farther back than deflate reaches.
  const Bytes far = table(50000) + noise(2000) + table(50000);
  const Bytes half = lines + noise(200000);
  const struct {
    const char* name;
    Bytes data;
    CompressionEffort effort;
    Codec codec;
  } kCases[] = {
      {"fast", lines, fast, Codec::deflateDictionary},
      {"balanced", far, balanced, Codec::lzfse},
      {"balancedDeflateIsSmaller", lines, balanced, Codec::deflateDictionary},
      {"smallest", lines, smallest, Codec::lzma},
      {"runAtBalanced", Bytes(32768, 'a'), balanced, Codec::deflateDictionary},
      {"runAtSmallest", Bytes(32768, 'a'), smallest, Codec::brotli},
      {"aboveHalfWithoutLzma", half, smallest, Codec::brotli},
      {"noise", noise(400000), smallest, Codec::stored},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const CompressedRecord record = Compressor::compress(c.data, seedDictionary(), c.effort);
    EXPECT_EQ(record.codec, c.codec);
    EXPECT_EQ(record.originalLength, c.data.size());
    EXPECT_TRUE(Compressor::decompress(record.payload, record.codec, seedDictionary(),
                                       record.originalLength) == c.data);
  }
  const CompressedRecord record = Compressor::compress(half, "", smallest);
  EXPECT_LT(xzEncode(half).value().size(), record.payload.size()) << "else nothing was skipped";
}

TEST(Compressor, promisedSizes) {
  const Bytes data = table(64000);
  const struct {
    Codec codec;
    Bytes payload;
  } kCases[] = {
      {Codec::lzfse, lzfseEncode(data).value()},
      {Codec::brotli, brotliEncode(data).value()},
      {Codec::lzma, xzEncode(data).value()},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(label(c.codec));
    for (const std::size_t size : {data.size(), data.size() / 16, ~std::size_t{0}}) {
      EXPECT_TRUE(Compressor::decompress(c.payload, c.codec, "", size) == data) << size;
    }
    for (const std::size_t size : {data.size() / 16 - 1, std::size_t{0}}) {
      EXPECT_FALSE(Compressor::decompress(c.payload, c.codec, "", size)) << size;
    }
  }
}

TEST(Compressor, decompressesTheDocumentedStreams) {
  const struct {
    const char* name;
    Bytes payload;
    Codec codec;
    Bytes dictionary;
    std::optional<Bytes> data;
  } kCases[] = {
      {"plainZlib",
       unhex("78daf348cdc9c9d751f08050e5f945392900"
             "40c206a9"),
       Codec::deflateDictionary, "", "Hello, Hello, world"},
      {"plainZlibIgnoresDictionary", unhex("78daf348cdc9c9d751f08050e5f94539290040c206a9"),
       Codec::deflateDictionary, "Hello, ", "Hello, Hello, world"},
      {"presetDictionary",
       unhex("78f909ee0241f340a1caf38b7252"
             "0040c206a9"),
       Codec::deflateDictionary, "Hello, ", "Hello, Hello, world"},
      {"seedDictionary", unhex("78f93ae5de2fc3ed6cbce5024e5d00f0061f39"), Codec::deflateDictionary,
       Bytes(seedDictionary()), kGreeting},
      {"wrongDictionary", unhex("78f909ee0241f340a1caf38b72520040c206a9"), Codec::deflateDictionary,
       "Hallo, ", std::nullopt},
      {"noDictionary", unhex("78f909ee0241f340a1caf38b72520040c206a9"), Codec::deflateDictionary,
       "", std::nullopt},
      {"bytesBehindTheStream", unhex("78daf348cdc9c9d751f08050e5f94539290040c206a9ffff"),
       Codec::deflateDictionary, "", "Hello, Hello, world"},
      {"wrongContentChecksum", unhex("78daf348cdc9c9d751f08050e5f94539290040c206a8"),
       Codec::deflateDictionary, "", std::nullopt},
      {"rawDeflate", unhex("f348cdc9c9d751f08050e5f94539290000"), Codec::deflateDictionary, "",
       std::nullopt},
      {"empty", "", Codec::deflateDictionary, "", ""},
      {"stored", "as it is", Codec::stored, "", "as it is"},
      {"lzfse", "bvx-\x03" + Bytes(3, '\0') + "abcbvx$", Codec::lzfse, "", "abc"},
      {"lzfseOfNothing", "bvx$", Codec::lzfse, "", std::nullopt},
      {"lzfseIsCut", "bvxn", Codec::lzfse, "", std::nullopt},
      {"lzmaIsCut", unhex("fd377a585a"), Codec::lzma, "", std::nullopt},
      {"brotli",
       unhex("0b0180616263"
             "03"),
       Codec::brotli, "", "abc"},
      {"brotliOfNothing", unhex("06"), Codec::brotli, "", std::nullopt},
      {"noPayload", "", Codec::brotli, "", std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Compressor::decompress(c.payload, c.codec, c.dictionary, 19), c.data);
  }
}

TEST(Deflate, damagedStreams) {
  const Bytes data = kGreeting + noise(300) + kGreeting;
  const Bytes stream = *Deflate::compress(data, seedDictionary());
  for (std::size_t size = 0; size < stream.size(); ++size) {
    SCOPED_TRACE(size);
    const BytesView cut = BytesView(stream).substr(0, size);
    EXPECT_EQ(Deflate::decompress(cut, seedDictionary(), data.size()), std::nullopt);
    Bytes flipped = stream;
    flipped[size] = static_cast<char>(flipped[size] ^ 0x10);
    const auto result = Deflate::decompress(flipped, seedDictionary(), data.size());
    EXPECT_EQ(result.value_or(data), data) << "damage is told, but for unused bits";
  }
  EXPECT_EQ(Deflate::decompress(stream, seedDictionary(), data.size()), data) << "state is reset";
}

TEST(Deflate, promisedSizes) {
  const Bytes data(100000, 'a');
  const Bytes stream = *Deflate::compress(data, "");
  const struct {
    const char* name;
    std::size_t expectedSize;
    bool taken;
  } kCases[] = {
      {"true", 100000, true},           {"short", 99999, true}, {"aSixteenth", 6250, true},
      {"belowASixteenth", 6249, false}, {"nothing", 0, false},  {"fourGigabytes", 0xffffffff, true},
      {"all", ~std::size_t{0}, true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto result = Deflate::decompress(stream, "", c.expectedSize);
    EXPECT_EQ(result.has_value(), c.taken);
    if (result) {
      EXPECT_EQ(*result, data);
      EXPECT_LE(result->capacity(), 2 * data.size()) << "memory follows the content";
    }
  }
  EXPECT_EQ(Deflate::decompress(*Deflate::compress("", ""), "", 0), std::nullopt);
}

TEST(Deflate, crc32) {
  EXPECT_EQ(Deflate::crc32(""), 0U);
  EXPECT_EQ(Deflate::crc32("123456789"), 0xcbf43926U);
}

TEST(CompressionEffort, words) {
  for (const char* word : {"fast", "balanced", "smallest"}) {
    const auto effort = compressionEffortFromRawValue(word);
    ASSERT_TRUE(effort) << word;
    EXPECT_EQ(rawValue(*effort), word);
  }
  EXPECT_FALSE(compressionEffortFromRawValue("Fast"));
}

}  // namespace
}  // namespace ambervane
