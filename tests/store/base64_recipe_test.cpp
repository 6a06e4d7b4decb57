#include "store/base64_recipe.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <vector>

namespace ambervane {
namespace {

std::string times(std::size_t count, std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < count; ++i) out += text;
  return out;
}

/// `columns` characters of base64; a multiple of four.
std::string line(std::size_t columns) { return times(columns / 4, "QUJD"); }

TEST(Base64Recipe, analyze) {
  const std::string full = line(76);
  const std::optional<Base64Recipe> none;
  const struct {
    const char* name;
    std::string encoded;
    std::optional<Base64Recipe> recipe;
  } kCases[] = {
      {"crlf", full + "\r\n" + full + "\r\nQUI=\r\n", Base64Recipe{76, true, true, ""}},
      {"lf", full + "\n" + full + "\nQUI=\n", Base64Recipe{76, false, true, ""}},
      {"noTrailingNewline", full + "\r\nQUI=", Base64Recipe{76, true, false, ""}},
      {"lastLineFull", full + "\r\n" + full + "\r\n", Base64Recipe{76, true, true, ""}},
      {"oneLine", "QUJDRA==", Base64Recipe{8, false, false, ""}},
      {"oneLineCrlf", "QUJDRA==\r\n", Base64Recipe{8, true, true, ""}},
      {"leadingCrlf", "\r\n" + full + "\r\nQUI=\r\n", Base64Recipe{76, true, true, "\r\n"}},
      {"leadingLf", "\n" + full + "\nQUI=", Base64Recipe{76, false, false, "\n"}},
      {"leadingLfCrlfLines", "\n" + full + "\r\nQUI=\r\n", Base64Recipe{76, true, true, "\n"}},
      {"fourColumns", "QUJD\nQUJD\nQQ==\n", Base64Recipe{4, false, true, ""}},
      {"996Columns", line(996) + "\r\n" + line(996), Base64Recipe{996, true, false, ""}},
      {"1000Columns", line(1000) + "\r\n" + line(1000), none},
      {"998IsNoMultiple", line(996) + "QU\r\n" + line(996) + "QU\r\n", none},
      {"sixColumns", "QUJDQU\nQUJDQU\n", none},
      {"seventyFiveColumns", full.substr(1) + "\n" + full.substr(1) + "\n", none},
      {"tooShort", "QUJDRA=", none},
      {"sevenBytes", "QUJD\r\nQ", none},
      {"empty", "", none},
      {"newlinesOnly", "\r\n\r\n\r\n\r\n\r\n", none},
      {"oneNewline", "\n", none},
      {"shortMiddleLine", full + "\r\n" + line(72) + "\r\n" + full + "\r\n", none},
      {"longerLastLine", line(72) + "\r\n" + full + "\r\n", none},
      {"twoBlankLinesAtEnd", full + "\r\n\r\n", none},
      {"twoBlankLinesAtStart", "\r\n\r\n" + full + "\r\n", none},
      {"mixedLineEnds", full + "\r\n" + full + "\nQUI=\r\n", none},
      {"strayCharacter", line(72) + "QU-D\r\n" + full + "\r\n", none},
      {"strayBlankAtLineEnd", line(72) + "QUJ \r\n" + full + "\r\n", none},
      {"bareCrAtEnd", full + "\r\nQUI=\r", none},
      {"crInsideLine", line(72) + "QU\rD\r\n", none},
      {"trailingGarbage", "QUJDRA==QUJDRA==\r\n", none},
      {"paddingInTheMiddle", "QQ==\r\nQUJD\r\n", none},
      {"missingPadding", "QUJDQUJD\r\nQUJDRA\r\n", none},
      {"onlyPadding", "========\r\n", none},
      {"unusedBitsSet", "QUJDRB==\r\n", none},
      {"quotedPrintable", "Caf=C3=A9 au lait", none},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto analysis = Base64Recipe::analyze(c.encoded);
    ASSERT_EQ(analysis.has_value(), c.recipe.has_value());
    if (!analysis) continue;
    EXPECT_EQ(analysis->recipe, *c.recipe);
    EXPECT_EQ(analysis->recipe.encode(analysis->decoded), c.encoded);
  }
}

TEST(Base64Recipe, documentedExample) {
  Bytes content;
  for (char c = 0; c < 60; ++c) content.push_back(c);
  const Base64Recipe recipe{76, true, true, ""};
  EXPECT_EQ(recipe.encode(content),
            "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4\r\n"
            "OTo7\r\n");
  EXPECT_EQ(recipe.toJson(),
            R"({"leadingWhitespace":"","lineLength":76,"trailingNewline":true,"usesCRLF":true})");
}

TEST(Base64Recipe, json) {
  const Base64Recipe recipe{4, false, false, "\r\n"};
  EXPECT_EQ(Base64Recipe::fromJson(recipe.toJson()), recipe);
  const std::string rest = R"(,"trailingNewline":true,"usesCRLF":true,"leadingWhitespace":"\n"})";
  EXPECT_EQ(Base64Recipe::fromJson(R"( {"later":1, "lineLength": 76)" + rest),
            (Base64Recipe{76, true, true, "\n"}));
  for (const auto& damaged : std::vector<std::string>{
           "", "[]", "76", R"({"lineLength":76)", R"({"lineLength":0)" + rest,
           R"({"lineLength":-76)" + rest, R"({"lineLength":76.5)" + rest,
           R"({"lineLength":"76")" + rest, R"({"lineLength":1e99)" + rest, R"({"other":76)" + rest,
           R"({"lineLength":76,"trailingNewline":true,"usesCRLF":true})",
           R"({"lineLength":76,"trailingNewline":1,"usesCRLF":true,"leadingWhitespace":""})"}) {
    SCOPED_TRACE(damaged);
    EXPECT_EQ(Base64Recipe::fromJson(damaged), std::nullopt);
  }
}

TEST(Base64Recipe, randomTextsComeBackExactly) {
  std::mt19937 random(20260301);
  const auto below = [&random](std::size_t limit) { return random() % limit; };
  static constexpr std::string_view kNoise = "\r\n=A/+ -Q\t";
  for (int round = 0; round < 4000; ++round) {
    SCOPED_TRACE(round);
    Bytes content(6 + below(300), '\0');
    for (char& c : content) c = static_cast<char>(random());
    Base64Recipe recipe{4 * (1 + below(25)), below(2) == 0, below(2) == 0, ""};
    // One line without an end shows nothing of its columns or of CRLF.
    const std::size_t columns = (content.size() + 2) / 3 * 4;
    recipe.lineLength = std::min(recipe.lineLength, columns);
    if (columns == recipe.lineLength && !recipe.trailingNewline) recipe.usesCRLF = false;
    if (below(3) == 0) recipe.leadingWhitespace = recipe.usesCRLF ? "\r\n" : "\n";
    std::string text = recipe.encode(content);
    auto analysis = Base64Recipe::analyze(text);
    ASSERT_TRUE(analysis);
    EXPECT_EQ(analysis->recipe, recipe);
    EXPECT_EQ(analysis->decoded, content);

    for (std::size_t change = below(3); change < 3; ++change) {
      const std::size_t at = below(text.size());
      const char noise = kNoise[below(kNoise.size())];
      switch (below(3)) {
        case 0:
          text[at] = noise;
          break;
        case 1:
          text.insert(at, 1, noise);
          break;
        default:
          text.erase(at, 1 + below(3));
      }
    }
    analysis = Base64Recipe::analyze(text);
    if (!analysis) continue;
    EXPECT_EQ(analysis->recipe.encode(analysis->decoded), text);
  }
}

}  // namespace
}  // namespace ambervane
