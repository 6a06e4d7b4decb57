#include "base/json.h"

#include <gtest/gtest.h>

namespace ambervane {
namespace {

TEST(Json, damageNamesTheFileAndDepthIsBounded) {
  static const struct {
    const char* name;
    std::string text;
    bool good;
  } kCases[] = {{"good", "{\"a\": [1, {\"b\": null}]}", true},
                {"cut", "{\"a\": ", false},
                {"notUtf8", "\"\xff\"", false},
                {"deep", std::string(200000, '[') + std::string(200000, ']'), false}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    try {
      parseJson(c.text, "/x/archive.json");
      EXPECT_TRUE(c.good);
    } catch (const JsonError& error) {
      EXPECT_FALSE(c.good);
      EXPECT_TRUE(std::string(error.what()).starts_with("/x/archive.json is damaged: "));
    }
  }
}

}  // namespace
}  // namespace ambervane
