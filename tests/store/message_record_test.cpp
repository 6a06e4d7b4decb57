#include "store/message_record.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "store/pack_error.h"

namespace ambervane {
namespace {

constexpr const char* kHash = "b12e86fefb72ffeed4c97326f121f822309f22a6d2efa1c3bff4a9f1895c52fe";

/// The worked example of docs/format/record.md.
const Bytes kExample{
    "\x01\x03\x00"
    "\x00\x08\x00\x00\x00"
    "\x01\x54\x00\x00\x00"
    "\xb1\x2e\x86\xfe\xfb\x72\xff\xee\xd4\xc9\x73\x26\xf1\x21\xf8\x22"
    "\x30\x9f\x22\xa6\xd2\xef\xa1\xc3\xbf\xf4\xa9\xf1\x89\x5c\x52\xfe"
    "\x00\x07\x00\x00\x00"
    "A: b\r\n\r\n--x--\r\n",
    65};

MessageRecord exampleRecord() {
  return {{MessageRecord::Literal{"A: b\r\n\r\n"}, MessageRecord::Blob{kHash, 84},
           MessageRecord::Literal{"--x--\r\n"}}};
}

std::string decodeFailure(BytesView bytes) {
  try {
    MessageRecord::decode(bytes);
  } catch (const PackError& error) {
    return std::get<PackError::CorruptRecord>(error.reason()).text;
  }
  return "";
}

TEST(MessageRecord, documentedBytes) {
  EXPECT_EQ(exampleRecord().encode(), kExample);
  const MessageRecord decoded = MessageRecord::decode(kExample);
  EXPECT_EQ(decoded, exampleRecord());
  EXPECT_EQ(decoded.blobHashes(), std::vector<std::string>{kHash});
  const auto* literal = std::get_if<MessageRecord::Literal>(&decoded.segments[2]);
  ASSERT_NE(literal, nullptr);
  EXPECT_EQ(literal->bytes.data(), kExample.data() + 58) << "a view, not a copy";
}

TEST(MessageRecord, cutAnywhere) {
  for (std::size_t size = 0; size < kExample.size(); ++size) {
    SCOPED_TRACE(size);
    const std::string expected = size < 3    ? "unsupported message record version"
                                 : size < 13 ? "truncated segment table"
                                 : size < 45 ? "truncated blob hash"
                                 : size < 50 ? "truncated segment table"
                                             : "truncated literal run";
    EXPECT_EQ(decodeFailure(BytesView(kExample).substr(0, size)), expected);
  }
}

TEST(MessageRecord, oddInput) {
  static const struct {
    const char* name;
    Bytes bytes;
    const char* failure;
    std::vector<MessageRecord::Segment> segments;
  } kCases[] = {
      {"version2", {"\x02\x00\x00", 3}, "unsupported message record version", {}},
      {"noSegments", {"\x01\x00\x00", 3}, "", {}},
      {"countWithoutTable", {"\x01\xff\xff", 3}, "truncated segment table", {}},
      {"countOneFourBytes", {"\x01\x01\x00\x00\x00\x00\x00", 7}, "truncated segment table", {}},
      {"emptyLiteral", {"\x01\x01\x00\x00\x00\x00\x00\x00", 8}, "", {MessageRecord::Literal{""}}},
      {"unknownKindIsLiteral",
       {"\x01\x01\x00\x07\x02\x00\x00\x00hi", 10},
       "",
       {MessageRecord::Literal{"hi"}}},
      {"leftOverBytes",
       {"\x01\x01\x00\x00\x02\x00\x00\x00high", 12},
       "",
       {MessageRecord::Literal{"hi"}}},
      {"lengthOverflow", {"\x01\x01\x00\x00\xff\xff\xff\xffhi", 10}, "truncated literal run", {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(decodeFailure(c.bytes), c.failure);
    if (*c.failure != '\0') continue;
    EXPECT_EQ(MessageRecord::decode(c.bytes).segments, c.segments);
  }
}

TEST(MessageRecord, refusesWhatTheLayoutCannotHold) {
  MessageRecord record;
  record.segments.assign(MessageRecord::kMaxSegments, MessageRecord::Literal{"x"});
  EXPECT_EQ(MessageRecord::decode(record.encode()), record);
  record.segments.emplace_back(MessageRecord::Literal{"x"});
  EXPECT_THROW(record.encode(), std::length_error);
  for (const char* hash : {"", "b1", "not hexadecimal"}) {
    EXPECT_THROW((MessageRecord{{MessageRecord::Blob{hash, 1}}}.encode()), std::invalid_argument);
  }
}

}  // namespace
}  // namespace ambervane
