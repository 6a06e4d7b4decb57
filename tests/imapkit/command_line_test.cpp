#include "imapkit/command_line.h"

#include <gtest/gtest.h>

#include <string>

#include "imapkit/modified_utf7.h"
#include "imapkit/sequence_set.h"

namespace ambervane {
namespace {

using Numbers = std::vector<std::int64_t>;

using namespace std::literals;

TEST(ModifiedUTF7, roundTrips) {
  static constexpr struct {
    const char *name, *decoded, *encoded;
  } kCases[] = {
      {"empty", "", ""},
      {"ascii", "INBOX/Kunden 2024+,", "INBOX/Kunden 2024+,"},
      {"ampersand", "A & B", "A &- B"},
      {"umlaut", "Entwürfe", "Entw&APw-rfe"},
      {"rfc3501", "~peter/mail/台北/日本語", "~peter/mail/&U,BTFw-/&ZeVnLIqe-"},
      {"astral", "\U0001f4e7", "&2D3c5w-"},
      {"control", "a\r\nb", "a&AA0ACg-b"},
      {"runs", "ä&ö", "&AOQ-&-&APY-"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(ModifiedUTF7::encode(c.decoded), c.encoded);
    EXPECT_EQ(ModifiedUTF7::decode(c.encoded), c.decoded);
  }
}

TEST(ModifiedUTF7, keepsWhatItCannotDecode) {
  for (const char* text : {"A&B", "&", "&AP", "&APw", "&A-", "&AB-", "&APx-", "&2D0-", "&3ec-",
                           "&2D0AQQ-", "&AP*-", "&====-"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(ModifiedUTF7::decode(text), text);
  }
  EXPECT_EQ(ModifiedUTF7::decode("&x &APw-"), "&x ü");
  EXPECT_EQ(ModifiedUTF7::encode("a\xff"), "a&,,0-");
}

TEST(SequenceSet, readsAndWrites) {
  EXPECT_EQ(compressSequenceSet(Numbers{}), "");
  EXPECT_EQ(compressSequenceSet(Numbers{5, 1, 2, 3, 3, 9, 10}), "1:3,5,9:10");
  const struct {
    const char *name, *text;
    std::optional<Numbers> numbers;
  } kCases[] = {
      {"ranges", "1:3,7,9:8", Numbers{1, 2, 3, 7, 8, 9}},
      {"unreadable", ",a,1:x,*,3:*,0,-4:2,6,", Numbers{6}},
      {"last", "9223372036854775807", Numbers{9223372036854775807}},
      {"tooMany", "1:10000001", std::nullopt},
      {"tooManyTogether", "1:9999999,5:6", std::nullopt},
      {"anyNumber", "1:9223372036854775807", std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(expandSequenceSet(c.text), c.numbers);
  }
}

TEST(CommandLine, knowsWhatModifies) {
  static constexpr struct {
    const char *command, *verb;
    bool modifies;
  } kCases[] = {
      {"uid store 1 +FLAGS (\\Seen)", "STORE", true},
      {"SELECT \"INBOX\"", "SELECT", true},
      {"Append x {1}", "APPEND", true},
      {" UID  EXPUNGE 1", "EXPUNGE", true},
      {"EXAMINE \"STORE\"", "EXAMINE", false},
      {"UID FETCH 1 (FLAGS)", "FETCH", false},
      {"UID", "UID", false},
      {"", "", false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.command);
    EXPECT_EQ(commandVerb(c.command), c.verb);
    EXPECT_EQ(modifiesMailbox(commandVerb(c.command)), c.modifies);
  }
  EXPECT_FALSE(isOneLine("LOGIN a \"b\r\nM1 DELETE x\""));
  EXPECT_FALSE(isOneLine("a\0b"sv));
  EXPECT_EQ(quotedString("a \"b\" \\"), R"("a \"b\" \\")");
}

TEST(CommandLine, writesAndReadsDates) {
  EXPECT_EQ(searchDate(Date{1707127200}), "05-Feb-2024");
  EXPECT_EQ(internalDateText(Date{1707127200}), "05-Feb-2024 10:00:00 +0000");
  static constexpr struct {
    const char* text;
    std::optional<double> seconds;
  } kCases[] = {
      {"05-Feb-2024 11:00:00 +0100", 1707127200},
      {" 5-Feb-2024 10:00:00 +0000", 1707127200},
      {"05-feb-2024 04:30:00 -0530", 1707127200},
      {"31-Feb-2024 10:00:00 +0000", std::nullopt},
      {"5 Feb 2024", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    const auto date = parseInternalDate(c.text);
    EXPECT_EQ(date ? std::optional(date->seconds) : std::nullopt, c.seconds);
  }
}

}  // namespace
}  // namespace ambervane
