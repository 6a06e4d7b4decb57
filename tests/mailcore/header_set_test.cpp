#include "mailcore/header_set.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace ambervane {
namespace {

using testing::ElementsAre;

/// "name|rawValue" of each field.
std::vector<std::string> shown(const HeaderSet& set) {
  std::vector<std::string> lines;
  for (const HeaderField& field : set.fields()) lines.push_back(field.name + "|" + field.rawValue);
  return lines;
}

TEST(HeaderSet, parse) {
  static const struct {
    const char* name;
    BytesView bytes;
    std::vector<std::string> fields;
  } kCases[] = {
      {"empty", "", {}},
      {"crlfAndLf", "A: b\r\nC:d\n", {"A| b", "C|d"}},
      {"noLastLineEnd", "A: b\r", {"A| b"}},
      {"duplicatesInOrder", "A: 1\nB: 2\na: 3\n", {"A| 1", "B| 2", "a| 3"}},
      {"unfolded", "A: b\r\n c\r\n\td\r\n", {"A| b c\td"}},
      {"foldedEmptyFirstLine", "A:\n b\n", {"A| b"}},
      {"emptyLineDoesNotEndField", "A: b\n\n c\nD: e\n", {"A| b c", "D| e"}},
      {"continuationFirst", " lost\n\tlost\nA: b\n", {"A| b"}},
      {"noColon",
       "A: b\nSubject\n more\nC: d\n",
       {"A| b", "X-Invalid-Header|Subject more", "C| d"}},
      {"noName", ": x\n \t: y\n  : z\nB:\n", {"X-Invalid-Header|: x \t: y  : z", "B|"}},
      {"blankBeforeColon", "Subject : x\n", {"Subject| x"}},
      {"colonInValue", "A: b: c\n", {"A| b: c"}},
      {"valueUtf8", "A: \xc3\xa9\n", {"A| é"}},
      {"valueWindows1252", "A: \x80 \xe9\n", {"A| € é"}},
      {"valueLatin1", "A: \x80\x81\n", {"A| \xc2\x80\xc2\x81"}},
      {"charactersJoinAcrossFold", "A: \xc3\n \xa9\n", {"A| Ã ©"}},
      {"nameIsLatin1", "\xc9\xa0: x\n", {"É| x"}},
      {"nulIsKept", BytesView("A: b\0c\n", 7), {std::string("A| b\0c", 6)}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(shown(HeaderSet::parse(c.bytes)), c.fields);
  }
}

TEST(HeaderSet, lookup) {
  const HeaderSet set =
      HeaderSet::parse("To: a\nX-\xc9: e\nSubject: =?utf-8?q?=C3=A9?=\nTO: b\nbad\n");
  EXPECT_EQ(set["tO"], " a");
  EXPECT_EQ(set["Cc"], std::nullopt);
  EXPECT_EQ(set["x-é"], " e");
  EXPECT_EQ(set["X-Invalid-Header"], "bad");
  EXPECT_EQ(set.first("to"), (HeaderField{"To", " a"}));
  EXPECT_THAT(set.all("to"), ElementsAre(HeaderField{"To", " a"}, HeaderField{"TO", " b"}));
  EXPECT_EQ(set.decoded("subject"), "é");
  EXPECT_EQ(set.decoded("cc"), std::nullopt);
  EXPECT_EQ((HeaderField{"X-\u00c9", " =?utf-8?q?a?= "}).lowercasedName(), "x-é");
}

TEST(HeaderSet, serializedKeepsFieldsAndTheirBlanks) {
  HeaderSet set = HeaderSet::parse("A: b\n c\nbad\n");
  set.append({"D", "e"});
  EXPECT_EQ(set.serialized(), "A: b c\r\nX-Invalid-Header:bad\r\nD:e\r\n");
  EXPECT_EQ(HeaderSet(set.fields()).serialized(), set.serialized());
  EXPECT_EQ(HeaderSet().serialized(), "");
}

TEST(SplitHeaderAndBody, readings) {
  static constexpr struct {
    const char* name;
    BytesView bytes;
    std::size_t headerEnd, bodyBegin;
  } kCases[] = {
      {"laterCrlfWins", "A: b\n\nx\r\n\r\ny", 7, 11},
      {"empty", "", 0, 0},
      {"emptyFirstLine", "\r\n\r\nx", 0, 4},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const HeaderSplit split = splitHeaderAndBody(c.bytes);
    EXPECT_EQ(split.headerEnd, c.headerEnd);
    EXPECT_EQ(split.bodyBegin, c.bodyBegin);
  }
}

TEST(SplitLines, readings) {
  EXPECT_THAT(splitLines("a\r\n\nb\rc\r\r\n"), ElementsAre("a", "", "b\rc\r"));
  EXPECT_THAT(splitLines("a\r"), ElementsAre("a"));
  EXPECT_THAT(splitLines("\n"), ElementsAre(""));
  EXPECT_THAT(splitLines(""), ElementsAre());
}

}  // namespace
}  // namespace ambervane
