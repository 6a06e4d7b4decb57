#include "store/dictionary_trainer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/mail_builder.h"

namespace ambervane {
namespace {

Bytes built(const std::vector<Bytes>& samples, std::size_t targetSize = kDictionaryBytes) {
  DictionaryTrainer trainer(targetSize);
  for (const Bytes& sample : samples) trainer.addSample(sample);
  return trainer.build();
}

/// A dictionary of what one line contributes when two messages have it.
Bytes learntFrom(const Bytes& line) { return built({line + "\r\n", line + "\n"}); }

TEST(DictionaryTrainer, samples) {
  const Bytes longBody(600, 'b');
  const struct {
    const char* name;
    Bytes message;
    Bytes sample;
  } kCases[] = {
      {"crlf", "A: b\r\nC: d\r\n\r\nHello", "A: b\r\nC: d\r\n\r\nHello"},
      {"bareLf", "A: b\nC: d\n\nHello", "A: b\nC: d\r\n\r\nHello"},
      {"headerOnly", "A: b\r\n", "A: b\r\n\r\n\r\n"},
      {"empty", "", "\r\n\r\n"},
      {"longBody", "A: b\r\n\r\n" + longBody, "A: b\r\n\r\n" + longBody.substr(0, 512)},
      {"allHeader", Bytes(2000000, 'h'), Bytes(786432, 'h')},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(DictionaryTrainer::sampleOf(c.message), c.sample);
  }
}

TEST(DictionaryTrainer, whatALineTeaches) {
  const Bytes sixty(60, 'x');
  const struct {
    const char* name;
    Bytes line;
    Bytes dictionary;
  } kCases[] = {
      {"field", "From: Anna B", "From:\r\nAnna B\r\nFrom: Anna B\r\n"},
      {"blanksAroundTheValue", "From:\t Anna B \t", "From:\r\nAnna B\r\nFrom: Anna B\r\n"},
      {"shortValue", "From: Anna", "From:\r\n"},
      {"secondColon", "Re: a: bcde", "a: bcde\r\nRe: a: bcde\r\n"},
      {"text", "Freundli", "Freundli\r\n"},
      {"shortText", "Freundl", ""},
      {"threeBytes", "ab:", ""},
      {"fourBytes", "abc:", "abc:\r\n"},
      {"shortNameLongValue", "a:bcdefg", "bcdefg\r\na: bcdefg\r\n"},
      {"sixtyFourCharacters", sixty + "abcdef", sixty + "abcd\r\n"},
      {"sixtyFourOfTheValue", "N: " + sixty + "abcdef", sixty + "abcd\r\nN: " + sixty + "abcd\r\n"},
      {"onlyTheFirst120Bytes", Bytes(120, 'n') + ": value", Bytes(64, 'n') + "\r\n"},
      {"eachByteIsACharacter", "Gr\xfc\xdf e es", "Gr\xc3\xbc\xc3\x9f e es\r\n"},
      {"blankOfLatin1",
       "A:\xa0"
       "bcdefg\xa0",
       "bcdefg\r\nA: bcdefg\r\n"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(learntFrom(c.line), c.dictionary);
  }
}

TEST(DictionaryTrainer, picksWhatSavesMost) {
  const struct {
    const char* name;
    std::vector<Bytes> samples;
    std::size_t targetSize;
    Bytes dictionary;
  } kCases[] = {
      {"noSamples", {}, 100, ""},
      {"nothingInCommon", {"lonely line", "other line"}, 100, ""},
      {"oncePerMessage", {"same line\nsame line\nsame line"}, 100, ""},
      // (3 - 1) * 8 against (2 - 1) * 12.
      {"frequentBeforeLong",
       {"frequent\nlonger text!", "frequent\nlonger text!", "frequent"},
       100,
       "longer text!\r\nfrequent\r\n"},
      {"equalScoresByText",
       {"line of b\nline of a\nline of c", "line of c\nline of b\nline of a"},
       100,
       "line of a\r\nline of b\r\nline of c\r\n"},
      {"bestThatFit",
       {"twelve bytes\neleven byte\n8 bytes!", "twelve bytes\neleven byte\n8 bytes!"},
       // 14 + 10: the middle one, of 13, is passed over and the walk goes on.
       24,
       "8 bytes!\r\ntwelve bytes\r\n"},
      {"oneByteShort", {"twelve bytes", "twelve bytes"}, 13, ""},
      {"exactFit", {"twelve bytes", "twelve bytes"}, 14, "twelve bytes\r\n"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(built(c.samples, c.targetSize), c.dictionary);
    std::vector<Bytes> reversed(c.samples.rbegin(), c.samples.rend());
    EXPECT_EQ(built(reversed, c.targetSize), c.dictionary);
  }
}

TEST(DictionaryTrainer, gathersABoundedAmount) {
  DictionaryTrainer trainer(100);
  trainer.addSample(Bytes(2399, 'a'));
  EXPECT_FALSE(trainer.isFull());
  trainer.addSample(Bytes(50, 'b'));
  EXPECT_TRUE(trainer.isFull());
  trainer.addSample("more");
  trainer.add("more");
  EXPECT_EQ(trainer.sampleCount(), 2U);
}

TEST(DictionaryTrainer, fillsADictionaryFromMail) {
  DictionaryTrainer trainer;
  for (int i = 0; i < 2000; ++i) trainer.add(plainMail(i % 1000));
  EXPECT_EQ(trainer.sampleCount(), 2000U);
  const Bytes dictionary = trainer.build();
  EXPECT_LE(dictionary.size(), kDictionaryBytes);
  EXPECT_GT(dictionary.size(), kDictionaryBytes - 100);
  EXPECT_TRUE(dictionary.ends_with("\r\nFrom: Anna Beispiel <anna@example.com>\r\n"));
}

}  // namespace
}  // namespace ambervane
