#include "mailformats/emlx.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "base/text.h"

namespace ambervane {
namespace {

using Flags = std::set<MessageFlag>;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

const std::string kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
    "1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n";

std::string dictionary(const std::string& entries) {
  return kHead + "<plist version=\"1.0\"><dict>" + entries + "</dict></plist>\n";
}

TEST(PropertyList, simpleValues) {
  const auto values = parsePropertyList(
      "\n" + dictionary("<key>s</key><string>a &lt;b&gt; &#xFC;<![CDATA[&c]]></string>"
                        "<!-- n --><key>wide</key><integer> 8623689857\n</integer>"
                        "<key>r</key><real>1.5e9</real><key>t</key><true/>"
                        "<key>huge</key><integer>99999999999999999999</integer>"
                        "<key>inf</key><real>inf</real>"
                        "<key>list</key><array><dict><key>x</key><true/></dict></array>"
                        "<key>d</key><date>2024-02-05T10:00:00Z</date>"));
  ASSERT_TRUE(values);
  EXPECT_THAT(*values,
              UnorderedElementsAre(Pair("s", PropertyValue(std::string("a <b> ü&c"))),
                                   Pair("wide", PropertyValue(std::int64_t{8623689857})),
                                   Pair("r", PropertyValue(1.5e9)), Pair("t", PropertyValue(true)),
                                   Pair("d", PropertyValue(std::string("2024-02-05T10:00:00Z")))));
}

TEST(PropertyList, refusals) {
  const std::string flags = "<key>flags</key><integer>1</integer>";
  std::string nested = "<true/>";
  for (int i = 0; i < 300; ++i) nested = "<array>" + nested + "</array>";
  const struct {
    const char* name;
    std::string xml;
  } kCases[] = {
      {"empty", ""},
      {"noXml", "bplist00"},
      {"cut", dictionary(flags).substr(0, kHead.size() + 60)},
      {"trailing", dictionary(flags) + "<more/>"},
      {"otherRoot", "<plist><array/></plist>"},
      {"noPlist", "<dict><key>a</key><true/></dict>"},
      {"twoRoots", "<plist><dict/><dict/></plist>"},
      {"valueWithoutKey", dictionary("<true/>")},
      {"keyWithoutValue", dictionary("<key>a</key>")},
      {"twoKeys", dictionary("<key>a</key><key>b</key><true/>")},
      {"unknownType", dictionary("<key>a</key><float>1</float>")},
      {"elementInAString", dictionary("<key>a</key><string><b/></string>")},
      {"ownEntity",
       "<!DOCTYPE p [<!ENTITY e \"1\">]><plist><dict><key>a</key><string>&e;</string>"
       "</dict></plist>"},
      {"fileEntity",
       "<!DOCTYPE p [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><plist><dict>"
       "<key>a</key><string>&e;</string></dict></plist>"},
      {"undeclaredEntity", dictionary("<key>a</key><string>&nbsp;</string>")},
      {"tooDeep", dictionary("<key>a</key>" + nested)},
      {"tooLong",
       dictionary("<key>a</key><string>" + std::string(kMaxPropertyListBytes, 'x') + "</string>")},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(parsePropertyList(c.xml), std::nullopt);
  }
}

TEST(EMLX, files) {
  const std::string plist = dictionary(
      "<key>flags</key><integer>8623689951</integer><key>date-received</key>"
      "<integer>1517000478</integer><key>remote-id</key><string>50758</string>");
  const Flags all = {MessageFlag::seen, MessageFlag::answered, MessageFlag::flagged,
                     MessageFlag::deleted, MessageFlag::draft};
  const struct {
    const char* name;
    std::string file, message;
    Flags flags;
    std::optional<Date> date;
    std::optional<std::string> remoteID;
  } kCases[] = {
      {"whole", "5    \nA: b\n" + plist, "A: b\n", all, Date{1517000478}, "50758"},
      {"crlfBehindTheLength", "4\r\nA: b" + plist, "A: b", all, Date{1517000478}, "50758"},
      {"longerThanTheFile", "5000\nA: b\n", "A: b\n", {}, {}, {}},
      {"lengthAlone", "12", "", {}, {}, {}},
      {"damagedList", "5\nA: b\n" + plist.substr(0, 300), "A: b\n", {}, {}, {}},
      {"otherTypes",
       "1\nA" + dictionary("<key>flags</key><string>1</string><key>date-received</key>"
                           "<real>-1.5</real><key>remote-id</key><integer>7</integer>"),
       "A",
       {},
       Date{-1.5},
       "7"},
      {"otherBits",
       "1\nA" + dictionary("<key>flags</key><integer>4294967216</integer>"),
       "A",
       {},
       {},
       {}},
      {"dateBeyondReason",
       "1\nA" + dictionary("<key>date-received</key><real>1e300</real>"),
       "A",
       {},
       {},
       {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto parsed = EMLX::parse(c.file);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(slice(c.file, parsed->message), c.message);
    EXPECT_EQ(parsed->flags, c.flags);
    EXPECT_EQ(parsed->dateReceived, c.date);
    EXPECT_EQ(parsed->remoteID, c.remoteID);
  }
  for (const char* const file :
       {"", "\n", "x\nA: b", "-5\nA: b", "+5\nA: b", "5x\nA: b", "99999999999999999999\nA: b"}) {
    SCOPED_TRACE(file);
    EXPECT_EQ(EMLX::parse(file).has_value(), false);
  }
}

}  // namespace
}  // namespace ambervane
