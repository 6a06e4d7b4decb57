#include "pdf/pdf_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "base/file.h"
#include "base/text.h"
#include "pdf/drawing_target.h"
#include "pdf/pdf_error.h"
#include "tests/pdf/pdf_reader.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

using testing::HasSubstr;

PdfSetup setup() {
  PdfSetup setup;
  setup.title = "Prüfung";
  setup.author = "Jörg Ölçer";
  setup.producer = "Test";
  setup.language = "de";
  setup.date = Date{1772360130};
  setup.headerLeft = std::string(400, 'W');
  setup.headerRight = "Kennung\ndrei";
  setup.pageLabel = [](int page, int pages) {
    return "<" + std::to_string(page) + "/" + std::to_string(pages) + ">";
  };
  return setup;
}

PdfDocument document(const std::function<void(PageFlow&)>& content) {
  return setPdf(setup(), content);
}

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

/// Nothing but the text's room has ink, on any page.
void expectInsideMargins(const PdfReader& reader) {
  for (int page = 0; page < reader.pages(); ++page) {
    EXPECT_FALSE(reader.hasInkBeside(page, static_cast<int>(sheet::kLeft) - 1,
                                     static_cast<int>(sheet::kRight) + 2))
        << "page " << page;
  }
}

TEST(PdfDocument, anotherProgramReadsIt) {
  const auto content = [](PageFlow& flow) {
    flow.heading("Überschrift", PdfStyle::title);
    flow.heading("Kapitel eins");
    flow.paragraph({"Größe, façade, señor, Ελληνικά, Русский, fi ffl — “quoted”"});
    flow.list({"erstens", "zweitens"});
    flow.facts({{"Kettenkopf:", {std::string(64, 'a'), PdfStyle::fixed}}});
    flow.newPage();
    flow.paragraph({"last", PdfStyle::strong, PdfTone::bad});
  };
  const PdfDocument set = document(content);
  EXPECT_EQ(set.pages, 2);
  EXPECT_EQ(set.unknownCharacters, 0);
  const PdfReader reader(set.bytes);
  ASSERT_TRUE(reader.isReadable());
  ASSERT_EQ(reader.pages(), 2);
  for (const char* said :
       {"Überschrift", "Größe, façade, señor, Ελληνικά, Русский, fi ffl — “quoted”", "zweitens",
        "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", "<1/2>", "WWW",
        "Kennung drei"}) {
    EXPECT_THAT(reader.text(0), HasSubstr(said));
  }
  EXPECT_THAT(reader.text(1), HasSubstr("<2/2>"));
  const auto title = reader.document().get_title().to_utf8();
  EXPECT_EQ(std::string(title.begin(), title.end()), "Prüfung");
  EXPECT_EQ(reader.document().get_creation_date_t(), 1772360130);
  const auto fonts = reader.document().fonts();
  EXPECT_GE(fonts.size(), 3U);
  for (const auto& font : fonts) EXPECT_TRUE(font.is_embedded() && font.is_subset()) << font.name();
  expectInsideMargins(reader);

  EXPECT_EQ(document(content).bytes, set.bytes);
  PdfSetup later = setup();
  later.date.seconds += 1;
  EXPECT_NE(setPdf(later, content).bytes, set.bytes);
}

TEST(PdfDocument, settableText) {
  static constexpr struct {
    const char* name;
    std::string_view text, settable;
  } kCases[] = {
      {"plain", "a b\tc", "a b\tc"},
      {"lineEnds",
       "a\r\nb\rc\nd\x0b"
       "e\xc2\x85"
       "f\xe2\x80\xa8g",
       "a\nb\nc\nd\ne\nf\ng"},
      {"controls", std::string_view("a\0b\x1b[31m\x7f\xc2\x9b", 11), "a�b�[31m��"},
      {"illFormed", "\xff\xc3(\xe2\x82", "��(�"},
      {"rightToLeftOverride",
       "gnp.\xe2\x80\xae"
       "exe",
       "gnp.�exe"},
      {"rightToLeft", "שלום", "שלום"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(settableText(c.text), c.settable);
  }
}

TEST(PdfDocument, brokenInputStaysOnThePage) {
  std::string marks = "a";
  for (int i = 0; i < 3000; ++i) marks += "\xcc\x81";
  const struct {
    const char* name;
    std::string text;
    const char* said;
  } kCases[] = {
      {"unbrokenWord", std::string(5000, 'x') + "END", "END"},
      {"longPath", "/srv/" + std::string(300, 'p') + "/archiv.ambervane", "ambervane"},
      {"garbage", std::string("\x01\x02\xff\xfe\0\x1b]0;END", 12), "END"},
      {"combiningMarks", marks + " END", "END"},
      {"emptyLines", std::string(200, '\n') + "END", "END"},
      {"privateUse", "\xf3\xb0\x80\x80 END", "END"},
      {"zeroWidth", std::string("\xe2\x80\x8b") + "END", "END"},
      {"empty", "", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const PdfDocument set = document([&](PageFlow& flow) {
      flow.heading(c.text);
      flow.paragraph({c.text});
      flow.list({c.text});
      flow.facts({{c.text, {c.text}}});
      flow.table({{{}, {.share = 0.2, .alignment = PdfAlignment::end}},
                  {c.text, "B"},
                  {{{{c.text}, {c.text, PdfStyle::fixed}}, {{c.text}}}, {}}});
      flow.signatureLines({{{c.text}}, {}});
    });
    EXPECT_EQ(set.unknownCharacters > 0, std::string_view(c.name) == "privateUse");
    const PdfReader reader(set.bytes);
    ASSERT_TRUE(reader.isReadable());
    EXPECT_THAT(reader.text(), HasSubstr(c.said));
    expectInsideMargins(reader);
  }
}

TEST(PdfDocument, nothingIsLostBetweenPages) {
  // Row heights that fall on every place of a page's end, and rows longer than a page.
  PdfTable table;
  table.columns = {{.share = 0.2}, {.share = 0.8}};
  table.header = {"KOPF", "Inhalt"};
  int number = 0;
  const auto lines = [&](int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += "[" + std::to_string(++number) + "]\n";
    text.pop_back();
    return text;
  };
  for (int i = 1; i <= 40; ++i) {
    table.rows.push_back({{{"Zeile " + std::to_string(i)}}, {{lines(1 + i % 9)}}});
  }
  table.rows.push_back({{{"lang"}}, {{lines(150)}}});
  std::vector<std::string> paragraphs;
  for (int i = 1; i <= 60; ++i) paragraphs.push_back(lines(i % 13 + 1));
  const PdfDocument set = document([&](PageFlow& flow) {
    flow.table(table);
    for (const std::string& text : paragraphs) flow.paragraph({text});
  });
  const PdfReader reader(set.bytes);
  ASSERT_EQ(reader.pages(), set.pages);
  const std::string text = reader.text();
  for (int i = 1; i <= number; ++i) {
    EXPECT_EQ(countOf(text, "[" + std::to_string(i) + "]"), 1U) << i;
  }
  std::size_t headed = 0;
  for (int page = 0; page < reader.pages(); ++page) headed += countOf(reader.text(page), "KOPF");
  EXPECT_GE(headed, 5U);
  for (int page = 0; page + 1 < static_cast<int>(headed); ++page) {
    EXPECT_EQ(countOf(reader.text(page), "KOPF"), 1U) << page;
  }
  expectInsideMargins(reader);
}

TEST(PdfDocument, aLongTextIsSetWhole) {
  std::string text;
  for (int i = 0; i < 20'000; ++i) text += "w" + std::to_string(i) + " ";
  const PdfReader reader(document([&](PageFlow& flow) { flow.paragraph({text}); }).bytes);
  const std::string read = reader.text();
  for (int i = 0; i < 20'000; i += 7) {
    ASSERT_THAT(read, HasSubstr("w" + std::to_string(i))) << i;
  }
  EXPECT_EQ(countOf(read, "w"), 20'000U);
}

TEST(PdfDocument, togetherWhereItFits) {
  const auto block = [](int lines) {
    return [lines](PageFlow& flow) {
      flow.keepTogether([lines](PageFlow& inner) {
        for (int i = 0; i < lines; ++i) inner.paragraph({i == 0 ? "FIRST" : "…"});
        inner.signatureLines({{{"LAST"}}});
      });
    };
  };
  const struct {
    const char* name;
    int before, lines, pages, page;
  } kCases[] = {{"fits", 5, 10, 1, 0}, {"movesOn", 35, 10, 2, 1}, {"tooLong", 0, 60, 2, 0}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const PdfReader reader(document([&](PageFlow& flow) {
                             for (int i = 0; i < c.before; ++i) flow.paragraph({"before"});
                             block(c.lines)(flow);
                           }).bytes);
    ASSERT_EQ(reader.pages(), c.pages);
    EXPECT_THAT(reader.text(c.page), HasSubstr("FIRST"));
    EXPECT_THAT(reader.text(c.pages - 1), HasSubstr("LAST"));
  }
}

TEST(PdfDocumentDeathTest, refusesWhereThereIsNoFont) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const ScratchFolder folder;
  const std::string configuration = folder / "fonts.conf";
  writeFileAtomically(configuration, "<?xml version=\"1.0\"?><fontconfig></fontconfig>");
  EXPECT_EXIT(
      {
        ::setenv("FONTCONFIG_FILE", configuration.c_str(), 1);
        try {
          document([](PageFlow& flow) { flow.paragraph({"x"}); });
        } catch (const PdfError& error) {
          std::exit(std::holds_alternative<PdfError::NoFont>(error.reason()) ? 0 : 2);
        }
        std::exit(3);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace ambervane
