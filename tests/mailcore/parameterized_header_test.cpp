#include "mailcore/parameterized_header.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace ambervane {
namespace {

using Parameters = std::map<std::string, std::string, std::less<>>;

TEST(ParameterizedHeader, parse) {
  static const struct {
    const char* name;
    std::string text, value;
    Parameters parameters;
  } kCases[] = {
      {"plain", " Text/HTML ; Charset=UTF-8", "text/html", {{"charset", "UTF-8"}}},
      {"quoted", R"(a; x="b;\"c\" \\"; y=z)", "a", {{"x", R"(b;"c" \)"}, {"y", "z"}}},
      {"noEquals", "a; b; =; c=", "a", {{"", ""}, {"c", ""}}},
      {"laterReplaces", "a; x=1; X=2", "a", {{"x", "2"}}},
      {"emptyValue", "; x=1", "", {{"x", "1"}}},
      {"encodedWord", "a; name=\"=?utf-8?q?=C3=A9?= x\"", "a", {{"name", "é x"}}},
      {"unclosedQuote", "a; x=\"b; y=c", "a", {{"x", "\"b; y=c"}}},
      {"extended", "a; f*=iso-8859-1'en'%e9%20b", "a", {{"f", "é b"}}},
      {"extendedWithoutCharset", "a; f*=x%20y", "a", {{"f", "x%20y"}}},
      {"extendedWithEmptyCharset", "a; f*=''x%20y", "a", {{"f", "x%20y"}}},
      {"extendedKeepsApostrophes", "a; f*=utf-8''it's%4'%zz", "a", {{"f", "it's%4'%zz"}}},
      {"continued", "a; f*0=\"x \"; f*1=y; f*2=z", "a", {{"f", "x yz"}}},
      {"continuedExtended", "a; f*0*=utf-8''a%20b; f*1=c.txt", "a", {{"f", "a bc.txt"}}},
      {"plainPieceStaysAsItStands", "a; f*0*=utf-8''a; f*1=%20", "a", {{"f", "a%20"}}},
      {"outOfOrder", "a; f*10=c; f*1*=%e9; f*0*=iso-8859-1''a", "a", {{"f", "aéc"}}},
      {"cutInsideCharacter", "a; f*0*=utf-8''%c3; f*1*=%a9", "a", {{"f", "é"}}},
      {"gapInNumbers", "a; f*0=x; f*7=y", "a", {{"f", "xy"}}},
      {"continuationsWin", "a; f*0=x; f=y", "a", {{"f", "x"}}},
      {"starWithoutNumber", "a; f*x=y", "a", {{"f*x", "y"}}},
      {"hugeNumber", "a; f*99999999999999999999=y", "a", {{"f*99999999999999999999", "y"}}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto header = ParameterizedHeader::parse(c.text);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->value, c.value);
    EXPECT_EQ(header->parameters, c.parameters);
  }
  EXPECT_FALSE(ParameterizedHeader::parse(std::nullopt));
  EXPECT_FALSE(ParameterizedHeader::parse(" \r\n\t"));
  std::string many = "a";
  for (std::size_t i = 0; i < kMaxParameters + 5; ++i) many += ";" + std::to_string(i) + "=x";
  EXPECT_EQ(ParameterizedHeader::parse(many)->parameters.size(), kMaxParameters);
}

TEST(ParameterizedHeader, derived) {
  const auto header = ParameterizedHeader::parse("Multipart/X/Y; boundary=b; CHARSET=c");
  ASSERT_TRUE(header);
  EXPECT_EQ(header->subtype(), "x/y");
  EXPECT_EQ(header->charset(), "c");
  EXPECT_EQ(header->parameter("name"), std::nullopt);
  EXPECT_EQ(ParameterizedHeader::parse("text")->subtype(), "");
}

}  // namespace
}  // namespace ambervane
