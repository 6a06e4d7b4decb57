#include <gtest/gtest.h>

#include <random>
#include <string>

#include "store/brotli_codec.h"
#include "store/xz_codec.h"
#include "tests/support/test_bytes.h"

namespace ambervane {
namespace {

constexpr struct {
  const char* name;
  std::optional<Bytes> (*encode)(BytesView);
  std::optional<Bytes> (*decode)(BytesView, std::size_t);
} kCodecs[] = {{"xz", xzEncode, xzDecode}, {"brotli", brotliEncode, brotliDecode}};

TEST(LibraryCodecs, roundTrips) {
  const struct {
    const char* name;
    Bytes data;
    bool shrinks;
  } kCases[] = {
      {"empty", "", false},
      {"oneByte", "a", false},
      {"noise", noise(100000, 1, 256), false},
      {"run", Bytes(5000, 'a'), true},
      {"severalBuffers", noise(300000, 1, 3), true},
      {"longRun", Bytes(8000000, '\0'), true},
  };
  for (const auto& codec : kCodecs) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(std::string(codec.name) + " " + c.name);
      const auto stream = codec.encode(c.data);
      ASSERT_EQ(stream.has_value(), c.shrinks);
      if (!stream) continue;
      EXPECT_LT(stream->size(), c.data.size());
      EXPECT_TRUE(codec.decode(*stream, c.data.size()) == c.data);
      EXPECT_TRUE(codec.decode(*stream, ~std::size_t{0}) == c.data);
      EXPECT_EQ(codec.decode(*stream, c.data.size() - 1), std::nullopt);
      EXPECT_EQ(codec.decode(*stream, 0), std::nullopt);
    }
  }
}

TEST(LibraryCodecs, damagedStreams) {
  const Bytes data = noise(500, 1, 4);
  for (const auto& codec : kCodecs) {
    const Bytes stream = codec.encode(data).value();
    EXPECT_EQ(codec.decode(stream + "x", 1000), std::nullopt) << codec.name;
    for (std::size_t at = 0; at < stream.size(); ++at) {
      SCOPED_TRACE(std::string(codec.name) + " " + std::to_string(at));
      EXPECT_EQ(codec.decode(BytesView(stream).substr(0, at), 1000), std::nullopt);
      Bytes damaged = stream;
      damaged[at] = static_cast<char>(damaged[at] ^ 0x04);
      const auto result = codec.decode(damaged, 1000);  // brotli has no checksum
      EXPECT_LE(result.value_or("").size(), 1000U);
      if (codec.decode == xzDecode) {
        EXPECT_EQ(result, std::nullopt);
      }
    }
  }
}

/// "abc" as written by other programs, in hexadecimal.
constexpr std::string_view kCrc32 =
    "fd377a585a0000016922de360200210116000000742fe5a30100026162630000c241243500011703"
    "07600cbc9042990d010000000001595a";
constexpr std::string_view kSha256 =
    "fd377a585a00000ae1fb0ca10200210116000000742fe5a30100026162630000ba7816bf8f01cfea"
    "414140de5dae2223b00361a396177a9cb410ff61f20015ad00013303a181e44d189b4b9a01000000"
    "000a595a";
/// With a filter for machine code, a dictionary of 1 GiB and no check.
constexpr std::string_view kLargeDictionary =
    "fd377a585a000000ff12d94102010400210124007cd245f201000261626300000001130303a560d8"
    "06729e7a010000000000595a";

TEST(XzCodec, takesAnyXzFile) {
  const Bytes crc32 = hexDecode(kCrc32).value(), sha256 = hexDecode(kSha256).value();
  const struct {
    const char* name;
    Bytes file;
    std::optional<Bytes> content;
  } kCases[] = {
      {"crc32", crc32, "abc"},
      {"sha256", sha256, "abc"},
      {"twoStreams", crc32 + sha256, "abcabc"},
      {"padding", crc32 + Bytes(4, '\0'), "abc"},
      {"unevenPadding", crc32 + Bytes(3, '\0'), std::nullopt},
      {"dictionaryOfOneGigabyte", hexDecode(kLargeDictionary).value(), std::nullopt},
      {"noFile", "", std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(xzDecode(c.file, 100), c.content);
  }
  const Bytes stream = xzEncode(Bytes(100, 'a')).value();
  EXPECT_EQ(stream.substr(0, 8), crc32.substr(0, 8)) << "header with CRC-32 as the check";
}

}  // namespace
}  // namespace ambervane
