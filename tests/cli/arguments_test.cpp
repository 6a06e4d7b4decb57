#include "cli/arguments.h"

#include <gtest/gtest.h>

namespace ambervane {
namespace {

TEST(Arguments, grammar) {
  using Words = std::vector<std::string>;
  using Options = std::map<std::string, std::string>;
  static const struct {
    const char* name;
    Words words;
    std::string command;
    Words positional;
    Options options;
    std::set<std::string> flags;
  } kCases[] = {
      {"nothing", {}, "help", {}, {}, {}},
      {"onlyAFlag", {"--help"}, "help", {}, {}, {"help"}},
      {"shortOptionsArePositional", {"-h"}, "-h", {}, {}, {}},
      {"loneDash", {"show", "-"}, "show", {"-"}, {}, {}},
      {"valueBehind", {"search", "a", "--limit", "50"}, "search", {"a"}, {{"limit", "50"}}, {}},
      {"valueInOne", {"search", "a", "--limit=50"}, "search", {"a"}, {{"limit", "50"}}, {}},
      {"emptyValue", {"create", "a", "--name="}, "create", {"a"}, {{"name", ""}}, {}},
      {"lastWordIsAFlag", {"create", "a", "--name"}, "create", {"a"}, {}, {"name"}},
      {"flagSwallowsAWord", {"verify", "--deep", "a"}, "verify", {}, {{"deep", "a"}}, {}},
      {"flagBeforeAnOption", {"x", "--a", "--b", "c"}, "x", {}, {{"b", "c"}}, {"a"}},
      {"dashedValue", {"x", "--name=--v"}, "x", {}, {{"name", "--v"}}, {}},
      {"splitAtTheFirst", {"x", "--q=a=b"}, "x", {}, {{"q", "a=b"}}, {}},
      {"bareDashes", {"x", "--"}, "x", {}, {}, {""}},
      {"optionBeforeTheCommand", {"--limit", "5", "x"}, "x", {}, {{"limit", "5"}}, {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const Arguments arguments = Arguments::parse(c.words);
    EXPECT_EQ(arguments.command, c.command);
    EXPECT_EQ(arguments.positional, c.positional);
    EXPECT_EQ(arguments.options, c.options);
    EXPECT_EQ(arguments.flags, c.flags);
  }
}

TEST(Arguments, repeatedOptionsKeepAllTheirValues) {
  const Arguments arguments =
      Arguments::parse({"x", "--participant", "a", "--participant", "b", "--participant=c"});
  EXPECT_EQ(arguments.option("participant"), "c");
  EXPECT_EQ(arguments.multiOptions.at("participant"), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_TRUE(arguments.has("participant"));
  EXPECT_FALSE(arguments.option("other"));
}

}  // namespace
}  // namespace ambervane
