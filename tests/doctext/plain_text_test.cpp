#include "doctext/plain_text.h"

#include <gtest/gtest.h>

#include "doctext/attachment_kind.h"

namespace ambervane {
namespace {

using namespace std::string_view_literals;

TEST(TextCollector, keepsWordsWholeAndApart) {
  const std::string data(300, 'Q');
  const std::string half = data.substr(0, 200);
  const std::string halfAndMore = half + ".b";
  const struct {
    const char* name;
    std::vector<std::string_view> pieces;
    std::string_view text;
  } kCases[] = {
      {"wordInPieces", {"Rech", "nung"}, "Rechnung"},
      {"blanks", {" \t a \t", "  b\r\n\r\n c "}, "a b\nc"},
      {"control",
       {"a\0b\x07"
        "c\x7f"
        "d"sv},
       "a b c d"},
      {"wideBlanks", {"a\u00a0b\u2003\u3000c\u0085d"}, "a b c d"},
      {"softHyphen", {"Rech\u00ad", "nungs\u200bnummer\ufeff"}, "Rechnungsnummer"},
      {"ligatures", {"\ufb01nden Sto\ufb00 A\ufb00\ufb03"}, "finden Stoff Affffi"},
      {"illFormed",
       {"a\xff"
        "b"},
       "a\ufffd"
       "b"},
      {"longData", {"vor ", data, " nach"}, "vor nach"},
      {"longDataInPieces", {"vor ", half, half, "Q nach"}, "vor nach"},
      {"longWordsBetweenDots", {half, ".b"}, halfAndMore},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    TextCollector collector(1000);
    for (const std::string_view piece : c.pieces) collector.append(piece);
    EXPECT_EQ(collector.text(), c.text);
  }
}

TEST(TextCollector, neverExceedsItsLimitOrCutsACharacter) {
  for (std::size_t limit = 0; limit < 12; ++limit) {
    SCOPED_TRACE(limit);
    TextCollector collector(limit);
    collector.append("a\u00e4 \u20ac bc");
    const std::string whole = "a\u00e4 \u20ac bc";
    EXPECT_LE(collector.text().size(), limit);
    EXPECT_EQ(whole.substr(0, collector.text().size()), collector.text());
    EXPECT_EQ(collector.isFull(), limit < whole.size());
  }
}

TEST(AttachmentKind, byTypeThenNameThenBytes) {
  using Kind = AttachmentKind;
  static constexpr struct {
    const char *type, *name;
    BytesView bytes;
    std::optional<Kind> kind;
  } kCases[] = {
      {"application/pdf", "a.txt", "%PDF-1.4", Kind::pdf},
      {"application/vnd.oasis.opendocument.text", "", "PK\x03\x04", Kind::office},
      {"text/x-log", "", "abc", Kind::plainText},
      {"text/rtf", "a.txt", "{\\rtf1", std::nullopt},
      {"application/x-invoice+xml", "", "<a/>", Kind::xml},
      {"application/msword", "Brief.DOCX", "PK\x03\x04", Kind::office},
      {"image/png", "a.png", "\x89PNG", std::nullopt},
      {"image/png", "a", "%PDF-1.4", std::nullopt},
      {"application/octet-stream", "a.csv", "1;2", Kind::plainText},
      {"application/octet-stream", "a.exe", "MZ", std::nullopt},
      {"application/octet-stream", "", "\n%PDF-1.4", Kind::pdf},
      {"", "", "PK\x03\x04", Kind::office},
      {"", "", "BEGIN:VCALENDAR\r\n", Kind::calendar},
      {"text/plain", "a.pdf", "%PDF-1.4", Kind::pdf},
      {"application/pdf", "a.pdf", "PK\x03\x04", Kind::office},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.type) + " " + c.name);
    const auto found = attachmentKind(c.type, c.name, c.bytes);
    EXPECT_EQ(found ? std::optional(found->kind) : std::nullopt, c.kind);
  }
}

TEST(PlainText, readInItsCharacterSet) {
  using Reader = decltype(&readPlainText);
  static constexpr struct {
    const char* name;
    Reader read;
    BytesView bytes;
    std::optional<std::string_view> charset;
    std::optional<std::string_view> text;
  } kCases[] = {
      {"utf8", readPlainText, "Größe", std::nullopt, "Größe"},
      {"unlabelled", readPlainText,
       "Gr\xf6\xdf"
       "e",
       std::nullopt, "Größe"},
      {"labelled", readPlainText, "\xcf\xf0\xe8", "windows-1251", "При"},
      {"markWins", readPlainText, "\xff\xfe\x41\0\xe4\0"sv, "us-ascii", "Aä"},
      {"cutUnit", readPlainText, "\xfe\xff\0A\0"sv, std::nullopt, "A"},
      {"utf32", readPlainText, "\xff\xfe\0\0A\0\0\0"sv, std::nullopt, "A"},
      {"padded", readPlainText, "Ende\0\0"sv, std::nullopt, "Ende"},
      {"binary", readPlainText, "a\0b"sv, "utf-8", std::nullopt},
      {"pageNamesIt", readHtml, "<meta charset='koi8-r'><p>\xf4\xc5\xd3\xd4</p>x", std::nullopt,
       "Тест\nx"},
      {"labelBeforePage", readHtml, "<meta charset=koi8-r>\xe4", "iso-8859-1", "ä"},
      {"pageNamesNonsense", readHtml, "<meta charset=\"utf-16\">a\xe4", std::nullopt, "aä"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    TextCollector collector(1000);
    EXPECT_EQ(c.read(c.bytes, c.charset, collector), c.text.has_value());
    EXPECT_EQ(collector.text(), c.text.value_or(""));
  }
}

TEST(Calendar, whatPeopleRead) {
  constexpr BytesView kCalendar =
      "BEGIN:VCALENDAR\r\nPRODID:-//maker//EN\r\nBEGIN:VEVENT\r\n"
      "UID:0815@example.com\r\nSUMMARY;LANGUAGE=de:Pr\xc3\r\n \xbc"
      "fung der Bel\r\n\tege\r\n"
      "DESCRIPTION:Raum 7\\, Haus B\\nBitte \\\\ mit\\;bringen\\\r\n"
      "attendee;PARTSTAT=ACCEPTED;CN=\"Beispiel: Anna\":MAILTO:anna@example.com\r\n"
      "ORGANIZER;cn=Bert;X=y:mailto:bert@example.org\r\nLOCATION:Bern\nURL:https://example.org\r\n"
      "DTSTART:20240229T100000Z\r\nEND:VEVENT";
  TextCollector collector(1000);
  EXPECT_TRUE(readCalendar(kCalendar, std::nullopt, collector));
  EXPECT_EQ(collector.text(),
            "Prüfung der Belege\nRaum 7, Haus B\nBitte \\ mit;bringen\n"
            "Beispiel: Anna anna@example.com\nBert bert@example.org\nBern\nhttps://example.org");
}

}  // namespace
}  // namespace ambervane
