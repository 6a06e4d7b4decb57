#include "mailcore/address_parser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ambervane {
namespace {

using Addresses = std::vector<MailAddress>;

TEST(AddressParser, parseList) {
  static const struct {
    const char* name;
    std::string text;
    Addresses expected;
  } kCases[] = {
      {"blank", " \t", {}},
      {"bare", "a@b", {{{}, "a@b", {}}}},
      {"quotedComma", R"("Doe, Jane" <j@x>, b@y)", {{"Doe, Jane", "j@x", {}}, {{}, "b@y", {}}}},
      {"quotedPairs", R"("a \"b\" \\c" <j@x>)", {{R"(a "b" \c)", "j@x", {}}}},
      {"commentIsName", "j@x (Jane)", {{"Jane", "j@x", {}}}},
      {"commentWithComma", "j@x (Doe, Jane), b@y", {{"Doe, Jane", "j@x", {}}, {{}, "b@y", {}}}},
      {"commentBeforeAngle", "Jane (not J(o)hn) Doe <j@x>", {{"Jane  Doe", "j@x", {}}}},
      {"commentInQuotesStays", "\"Jane (home)\" <j@x>", {{"Jane (home)", "j@x", {}}}},
      {"quoteInCommentHidesItsEnd", "Jane (a \"b) c\" d) Doe <j@x>", {{"Jane  Doe", "j@x", {}}}},
      {"emptyGroup", "undisclosed-recipients:;", {}},
      {"group", "team: a@x, b@x; c@y", {{{}, "a@x", "team"}, {{}, "b@x", "team"}, {{}, "c@y", {}}}},
      {"groupWithEmptyMember", "team: <>;", {{{}, "", "team"}}},
      {"emptyAngleOutsideGroup", "a <>, <b@y>", {{{}, "b@y", {}}}},
      {"strayColonOpensGroup", "a:b@x", {{{}, "b@x", "a"}}},
      {"routeInAngleIsNoGroup", "A <@h:a@b>", {{"A", "@h:a@b", {}}}},
      {"encodedName", "=?utf-8?q?J=C3=A9?= <j@x>", {{"Jé", "j@x", {}}}},
      {"encodedCommaSeparates",
       "=?utf-8?q?Doe=2C_Jane?= <j@x>",
       {{{}, "Doe", {}}, {"Jane", "j@x", {}}}},
      {"emptyItems", ",, a@b ,;", {{{}, "a@b", {}}}},
      {"lastAngleCounts", "<a@b> x <c@d>", {{"<a@b> x", "c@d", {}}}},
      {"unclosedAngle", "Jane <j@x", {{{}, "Jane <j@x", {}}}},
      {"quotesAroundAddress", "'j@x', \"k@x\"", {{{}, "j@x", {}}, {{}, "k@x", {}}}},
      {"emptyNameIsAbsent", R"("" <j@x>)", {{{}, "j@x", {}}}},
      {"escapedSeparator", R"(a\,b@x)", {{{}, R"(a\,b@x)", {}}}},
      {"unclosedQuoteTakesRest", R"(a@x, "b, c@y)", {{{}, "a@x", {}}, {{}, "b, c@y", {}}}},
      {"unbalancedParenthesis", "a)@x, b@y", {{{}, "a)@x", {}}, {{}, "b@y", {}}}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(AddressParser::parseList(c.text), c.expected);
  }
  EXPECT_EQ(AddressParser::parseList(std::nullopt), Addresses{});
}

TEST(AddressParser, longGroupNameIsCut) {
  const std::string name(100'000, 'g');
  const auto list = AddressParser::parseList(name + ": a@x, b@x;");
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[1].group, name.substr(0, AddressParser::kMaxGroupCharacters));
}

TEST(MailAddress, derived) {
  static const struct {
    const char* name;
    MailAddress address;
    std::optional<std::string> domain;
    std::string formatted;
  } kCases[] = {
      {"plain", {{}, "A@Ex.ORG", {}}, "ex.org", "A@Ex.ORG"},
      {"named", {"J. \"X\"", "a@b", {}}, "b", "J. \"X\" <a@b>"},
      {"noDomain", {{}, "a@", {}}, std::nullopt, "a@"},
      {"secondPieceCounts", {{}, "@h,@i:a@b", {}}, "i:a", "@h,@i:a@b"},
      {"unicode", {{}, "a@BÜCHER.de", {}}, "bücher.de", "a@BÜCHER.de"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.address.domain(), c.domain);
    EXPECT_EQ(c.address.formatted(), c.formatted);
  }
  EXPECT_EQ((MailAddress{{}, "Jö@ÄX", {}}).normalizedAddress(), "jö@äx");
}

}  // namespace
}  // namespace ambervane
