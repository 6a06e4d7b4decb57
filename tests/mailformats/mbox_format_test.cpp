#include "mailformats/mbox_format.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "base/calendar.h"

namespace ambervane {
namespace {

using ::testing::ElementsAreArray;

using Flags = std::set<MessageFlag>;

TEST(MboxFormat, starts) {
  static const struct {
    const char* name;
    BytesView file;
    std::vector<std::size_t> starts;
  } kCases[] = {
      {"empty", "", {}},
      {"noEnvelope", "Subject: a\n\nFrom", {}},
      {"atTheStart", "From ", {0}},
      {"behindALeadingEmptyLine", "\nFrom a\n", {1}},
      {"behindAnEmptyLine", "From a\n\nFrom b\n", {0, 8}},
      {"behindText", "From a\ntext\nFrom here\n", {0}},
      {"adjoiningEnvelopes", "From a\nFrom b\n", {0}},
      {"behindAnyLineEndOfCrlf", "From a\r\ntext\r\nFrom b\r\n", {0, 14}},
      {"behindAMixedEmptyLine", "From a\n\r\nFrom b\n", {0, 9}},
      {"quotedStays", "From a\n\n>From b\n", {0}},
      {"wordOnlyBeginsAlike", "From a\n\nFrom: b\n", {0}},
      {"bytesBeforeTheFirst", "junk\n\nFrom a\n", {6}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    std::vector<std::size_t> starts;
    for (std::size_t at = nextMboxStart(c.file, 0); at != BytesView::npos;
         at = nextMboxStart(c.file, at + 1)) {
      starts.push_back(at);
    }
    EXPECT_THAT(starts, ElementsAreArray(c.starts));
  }
}

TEST(MboxFormat, separator) {
  static constexpr struct {
    const char* name;
    BytesView content, kept;
  } kCases[] = {
      {"lf", "A: b\n\ntext\n\n", "A: b\n\ntext\n"},
      {"crlf", "text\r\n\r\n", "text\r\n"},
      {"onlyOneOfSeveral", "text\n\n\n", "text\n\n"},
      {"endOfFileWithoutEmptyLine", "text\n", "text\n"},
      {"crlfWithoutEmptyLine", "text\r\n", "text\r\n"},
      {"unfinishedLine", "text", "text"},
      {"nothingButTheSeparator", "\n", ""},
      {"empty", "", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(withoutSeparator(c.content), c.kept);
  }
}

TEST(MboxFormat, quotedLines) {
  static constexpr struct {
    const char* name;
    MboxVariant variant;
    BytesView content, unescaped;
  } kCases[] = {
      {"mboxo", MboxVariant::mboxo, "a\n>From b\n>>From c\n", "a\nFrom b\n>>From c\n"},
      {"mboxrd", MboxVariant::mboxrd, "a\n>From b\n>>From c\n", "a\nFrom b\n>From c\n"},
      {"mboxcl2", MboxVariant::mboxcl2, "a\n>From b\n", "a\n>From b\n"},
      {"onlyLineStarts", MboxVariant::mboxrd, "a >From b\n >From c\n", "a >From b\n >From c\n"},
      {"firstLine", MboxVariant::mboxrd, ">From a", "From a"},
      {"detectedMboxo", MboxVariant::detected, "a\n>From b\n", "a\nFrom b\n"},
      {"detectedByTwo", MboxVariant::detected, "a\n>>From b\n>From c\n", "a\n>From b\nFrom c\n"},
      {"detectedByThreeAlone", MboxVariant::detected, "a\n>>>From b\n", "a\n>>From b\n"},
      {"twoInsideALineDoNotDetect", MboxVariant::detected, "a >>From b\n>From c\n",
       "a >>From b\nFrom c\n"},
      {"contentLengthDetects", MboxVariant::detected, "A: b\nContent-Length: 9\n\n>From b\n",
       "A: b\nContent-Length: 9\n\n>From b\n"},
      {"carriageReturnEndsNoLine", MboxVariant::mboxo, "a\r>From b\n", "a\r>From b\n"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(unescapeMbox(c.content, c.variant), c.unescaped);
  }
}

TEST(MboxFormat, segments) {
  static constexpr struct {
    const char* name;
    BytesView segment, raw;
  } kCases[] = {
      {"cuts", "From a\nB: c\nContent-Length: 3\n\nabcdef\n\n", "B: c\nContent-Length: 3\n\nabc"},
      {"whole", "From a\nContent-Length: 4\n\nabc\n\n", "Content-Length: 4\n\nabc\n"},
      {"tooLong", "From a\nContent-Length: 10\n\nabcd\n\n", "Content-Length: 10\n\nabcd\n"},
      {"signed", "From a\nContent-Length: +1\n\nabc\n\n", "Content-Length: +1\n\nabc\n"},
      {"overflow", "From a\nContent-Length: 99999999999999999999\n\nabc\n\n",
       "Content-Length: 99999999999999999999\n\nabc\n"},
      {"noEmptyLine", "From a\nContent-Length: 0\n", "Content-Length: 0\n"},
      {"bareCarriageReturns", "From a\rB: c\r\rtext\r", "B: c\r\rtext\r"},
      {"believedInMboxoToo", "From a\ncontent-length: 5\n\n>From b\n\n",
       "content-length: 5\n\nFrom "},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(readMboxSegment(c.segment, MboxVariant::detected).raw, c.raw);
  }
}

TEST(MboxFormat, flags) {
  static const struct {
    const char* name;
    BytesView headers;
    Flags flags;
  } kCases[] = {
      {"none", "Subject: R\n", {}},
      {"statusAndXStatus",
       "Status: RO\nX-Status: AFDT\n",
       {MessageFlag::seen, MessageFlag::answered, MessageFlag::flagged, MessageFlag::deleted,
        MessageFlag::draft}},
      {"oldIsSeen", "Status: O\n", {MessageFlag::seen}},
      {"mozilla",
       "X-Mozilla-Status: 000f\n",
       {MessageFlag::seen, MessageFlag::answered, MessageFlag::flagged, MessageFlag::deleted}},
      {"mozillaOtherBits", "X-Mozilla-Status: 8010\n", {}},
      {"mozillaTooLarge", "X-Mozilla-Status: 10001\n", {}},
      {"mozillaNoNumber", "X-Mozilla-Status: 1 x\n", {}},
      {"inTheBodyTheyAreText", "A: b\n\nStatus: R\n", {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const Bytes segment = "From a\n" + Bytes(c.headers) + "\n\n";
    EXPECT_EQ(readMboxSegment(segment, MboxVariant::detected).flags, c.flags);
  }
}

TEST(MboxFormat, envelopeDate) {
  static constexpr struct {
    const char* name;
    BytesView line;
    const char* date;  // empty: none
  } kCases[] = {
      {"asctime", "From a@b.ch Mon Feb  5 10:00:00 2024", "2024-02-05T10:00:00Z"},
      {"carriageReturn", "From a@b.ch Mon Feb 15 10:00:00 2024\r", "2024-02-15T10:00:00Z"},
      {"addressWithBlanks", "From a at b.ch  Mon Feb  5 10:00:00 2024", "2024-02-05T10:00:00Z"},
      {"noAddress", "From  Mon Feb  5 10:00:00 2024", "2024-02-05T10:00:00Z"},
      {"offsetBeforeTheYear", "From - Mon Feb 5 10:00:00 +0100 2024", "2024-02-05T09:00:00Z"},
      {"zoneBeforeTheYear", "From - Mon Feb 5 10:00:00 CET 2024", "2024-02-05T09:00:00Z"},
      {"offsetBehindTheYear", "From - Mon Feb 5 10:00:00 2024 -0500", "2024-02-05T15:00:00Z"},
      {"noSeconds", "From a Mon Feb  5 10:07 2024", "2024-02-05T10:07:00Z"},
      {"dateField", "From a Mon, 5 Feb 2024 10:00:00 +0100", "2024-02-05T09:00:00Z"},
      {"addressOnly", "From a@b.ch", ""},
      {"bare", "From ", ""},
      {"noEnvelope", "Subject: Mon Feb  5 10:00:00 2024", ""},
      {"noDate", "From Mon to Fri we are open", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const std::optional<Date> date = mboxEnvelopeDate(c.line);
    EXPECT_EQ(date ? iso8601(*date) : "", c.date);
  }
}

}  // namespace
}  // namespace ambervane
