#include "store/solid_block.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "store/pack_error.h"

namespace ambervane {
namespace {

// The example of docs/format/solid_block.md: three members, the second of them empty.
const Bytes kBlock("AVB1\x03\0\0\0\x03\0\0\0\0\0\0\0\x04\0\0\0onefour", 27);

Bytes block(std::string_view table, std::string_view data) {
  return Bytes("AVB1").append(table).append(data);
}

/// What reading one member of `bytes`, or all of them, says of a damage; empty when all is well.
std::string failureOf(BytesView bytes, std::optional<std::size_t> index = std::nullopt) {
  try {
    if (index) {
      SolidBlock::member(*index, bytes);
    } else {
      SolidBlock::members(bytes);
    }
  } catch (const PackError& error) {
    if (!error.is<PackError::CorruptRecord>()) return "another error";
    return std::get<PackError::CorruptRecord>(error.reason()).text;
  }
  return "";
}

TEST(SolidBlock, literalBytes) {
  const std::vector<BytesView> members = {"one", "", "four"};
  EXPECT_EQ(SolidBlock::pack(members), kBlock);
  EXPECT_EQ(SolidBlock::members(kBlock), (std::vector<ByteRange>{{20, 23}, {23, 23}, {23, 27}}));
  for (std::size_t i = 0; i < members.size(); ++i) {
    EXPECT_EQ(SolidBlock::member(i, kBlock), members[i]);
  }
  const std::vector<BytesView> single = {"only"};
  EXPECT_EQ(SolidBlock::member(0, SolidBlock::pack(single)), "only");
}

TEST(SolidBlock, cutAtEveryLength) {
  for (std::size_t size = 0; size < kBlock.size(); ++size) {
    SCOPED_TRACE(size);
    const Bytes cut = kBlock.substr(0, size);  // of its own, so that a read behind it is noticed
    const char* expected = size < 8    ? "not a solid block"
                           : size < 20 ? "solid block member table runs past the block"
                           : size < 23 ? "solid block member 0 runs past the block"
                                       : "solid block member 2 runs past the block";
    EXPECT_EQ(failureOf(cut), expected);
    EXPECT_EQ(failureOf(cut, 2), expected);
    EXPECT_EQ(failureOf(cut, 0), size >= 23 ? "" : expected);
  }
}

TEST(SolidBlock, readings) {
  using namespace std::string_view_literals;
  const struct {
    const char* name;
    Bytes bytes;
    const char* failure;
    std::size_t members;
  } kCases[] = {
      {"noMembers", block("\0\0\0\0"sv, ""), "", 0},
      {"bytesBehindTheLast", kBlock + "tail", "", 3},
      {"wrongMagic", "AVB2" + kBlock.substr(4), "not a solid block", 0},
      {"hugeCount", block("\xff\xff\xff\xff"sv, "12345678"),
       "solid block member table runs past the block", 0},
      {"tableShortByOne", block("\2\0\0\0\0\0\0\0\0\0\0"sv, ""),
       "solid block member table runs past the block", 0},
      {"hugeMember", block("\1\0\0\0\xff\xff\xff\xff"sv, "x"),
       "solid block member 0 runs past the block", 0},
      {"sumTooLarge", block("\2\0\0\0\2\0\0\0\xff\xff\xff\xff"sv, "xyz"),
       "solid block member 1 runs past the block", 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(failureOf(c.bytes), c.failure);
    if (*c.failure == '\0') {
      EXPECT_EQ(SolidBlock::members(c.bytes).size(), c.members);
    }
  }
  EXPECT_EQ(failureOf(kBlock, 3), "not a solid block");
}

}  // namespace
}  // namespace ambervane
