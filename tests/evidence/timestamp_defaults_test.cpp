#include "evidence/timestamp_defaults.h"

#include <gtest/gtest.h>

namespace ambervane {
namespace {

TEST(TimestampDefaults, onlyOneTurnsThemOff) {
  for (const char* value : {"", "0", "true", "01", "1 "}) EXPECT_FALSE(disablesTimestamps(value));
  EXPECT_FALSE(disablesTimestamps(nullptr));
  EXPECT_TRUE(disablesTimestamps("1"));
  EXPECT_TRUE(TimestampDefaults::authorities().empty()) << "a test program must not ask anyone";
}

TEST(TimestampAuthorities, setting) {
  using Urls = std::vector<std::string>;
  const Urls defaults = TimestampDefaults::authorities();
  const struct {
    std::optional<std::string> setting;
    Urls urls;
  } kCases[] = {
      {std::nullopt, defaults},
      {"", defaults},
      {" , http://a b/", defaults},
      {"none", {}},
      {" http://b/x?y ,, https://a:1/ ,\x01", {"http://b/x?y", "https://a:1/"}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.setting.value_or("(absent)"));
    EXPECT_EQ(timestampAuthorities(c.setting), c.urls);
  }
}

}  // namespace
}  // namespace ambervane
