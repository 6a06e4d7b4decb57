#include "doctext/attachment_text.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "base/file.h"
#include "doctext/document_helper.h"
#include "mailcore/parsed_message.h"
#include "tests/doctext/document_builder.h"

namespace ambervane {
namespace {

constexpr const char* kUnknown = "application/octet-stream";

class AttachmentTextTest : public testing::Test {
 protected:
  static std::filesystem::path helper() { return findDocumentHelper().value_or(""); }
  void SetUp() override { ASSERT_FALSE(helper().empty()); }

  void expectText(const char* name, const Bytes& document, std::string_view text,
                  bool readable = true) {
    SCOPED_TRACE(name);
    const auto result = reader_.read(document, kUnknown, "");
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->text, text);
    EXPECT_EQ(result->readable, readable);
  }

  AttachmentTextReader reader_{helper()};
};

TEST_F(AttachmentTextTest, wordProcessing) {
  expectText("runsAndCells",
             wordFile("<w:p><w:r><w:t>Rech</w:t></w:r><w:r><w:t xml:space='preserve'>nung </w:t>"
                      "</w:r><w:r><w:t>A&amp;B&#x20AC;</w:t><w:tab/><w:delText>alt</w:delText>"
                      "<w:t>x</w:t><w:br/><w:t>y</w:t><w:noBreakHyphen/><w:t>z</w:t></w:r></w:p>"
                      "<w:tbl><w:tr><w:tc><w:p><w:r><w:t>Menge</w:t></w:r></w:p></w:tc><w:tc><w:p>"
                      "<w:r><w:t>7</w:t></w:r></w:p></w:tc></w:tr></w:tbl>"),
             "Rechnung A&B€ x y-z\nMenge\n7");
  expectText("onceInTwoForms",
             wordFile("<mc:AlternateContent><mc:Choice><w:t>Kasten</w:t></mc:Choice><mc:Fallback>"
                      "<w:t>Kasten</w:t></mc:Fallback></mc:AlternateContent>"),
             "Kasten");
  expectText("partsBeside",
             wordFile("<w:p><w:t>Text</w:t></w:p>",
                      {{"x/_rels/document.xml.rels", relationsTo({{"footnotes", "notes.xml"},
                                                                  {"header", "/x/h.xml"},
                                                                  {"image", "i.png"},
                                                                  {"header", "../x/h.xml"}})},
                       {"x/h.xml", wordXml("<w:p><w:t>Kopf</w:t></w:p>")},
                       {"x/notes.xml", wordXml("<w:p><w:t>Fuß</w:t></w:p>")}}),
             "Text\nKopf\nFuß");
  expectText("missingPart",
             wordFile("<w:p><w:t>Text</w:t></w:p>",
                      {{"x/_rels/document.xml.rels", relationsTo({{"header", "h.xml"}})}}),
             "Text", false);
  expectText("cutInside",
             packageOf("document.xml", "<w:document xmlns:w='u'><w:p><w:t>vorn</w:t><w"), "vorn",
             false);
}

TEST_F(AttachmentTextTest, spreadsheet) {
  const Bytes workbook = packageOf(
      "workbook.xml",
      "<workbook xmlns:r='http://x/relationships'><sheets><sheet name='Zwei' r:id='r2'/>"
      "<sheet name='Eins' r:id='r1'/></sheets></workbook>",
      {{"x/_rels/workbook.xml.rels", relationsTo({{"worksheet", "s1.xml"},
                                                  {"worksheet", "s2.xml"},
                                                  {"sharedStrings", "str.xml"},
                                                  {"styles", "sty.xml"}})},
       {"x/str.xml",
        "<sst><si><t>Kunde</t></si><si><r><t>Mül</t></r><r><t>ler</t></r><rPh><t>no</t></rPh></si>"
        "</sst>"},
       {"x/sty.xml",
        "<styleSheet><numFmts><numFmt numFmtId='164' formatCode='&quot;RE-&quot;0000'/></numFmts>"
        "<cellStyleXfs><xf numFmtId='2'/></cellStyleXfs>"
        "<cellXfs><xf numFmtId='0'/><xf numFmtId='164'/><xf "
        "numFmtId='14'/></cellXfs></styleSheet>"},
       {"x/s1.xml",
        "<worksheet><sheetData><row><c t='s'><v>0</v></c><c t='s'><v>1</v></c><c t='s'><v>9</v></c>"
        "</row><row><c s='1'><v>42</v></c><c s='2'><v>45351</v></c><c s='77'><v>0.1</v></c>"
        "<c t='inlineStr'><is><t>inline</t></is></c><c t='str'><f>A1</f><v>Formel</v></c>"
        "<c t='e'><v>#REF!</v></c></row></sheetData></worksheet>"},
       {"x/s2.xml", "<worksheet><row><c><v>20240815</v></c></row></worksheet>"},
       {"x/_rels/s2.xml.rels", relationsTo({{"comments", "c.xml"}})},
       {"x/c.xml", "<comments><comment><text><r><t>Geprüft</t></r></text></comment></comments>"}});
  expectText("workbook", workbook,
             "Zwei\n20240815\nGeprüft\nEins\nKunde Müller\n"
             "RE-0042 0042 29.02.2024 2024-02-29 0.1 inline Formel");
}

TEST_F(AttachmentTextTest, presentation) {
  const auto slide = [](const char* text) {
    return "<p:sld xmlns:p='p' xmlns:a='a'><a:p><a:r><a:t>" + std::string(text) +
           "</a:t></a:r></a:p></p:sld>";
  };
  expectText("slidesAsShown",
             packageOf("presentation.xml",
                       "<p:presentation xmlns:p='p' xmlns:r='http://x/relationships'><p:sldIdLst>"
                       "<p:sldId id='256' r:id='r2'/><p:sldId id='257' r:id='r1'/></p:sldIdLst>"
                       "</p:presentation>",
                       {{"x/_rels/presentation.xml.rels",
                         relationsTo({{"slide", "slides/b.xml"}, {"slide", "slides/a.xml"}})},
                        {"x/slides/a.xml", slide("Erste")},
                        {"x/slides/b.xml", slide("Zweite")},
                        {"x/slides/_rels/a.xml.rels", relationsTo({{"notesSlide", "../n.xml"}})},
                        {"x/_rels/n.xml.rels", relationsTo({{"slide", "slides/a.xml"}})},
                        {"x/n.xml", slide("Notiz")}}),
             "Erste\nNotiz\nZweite");
}

TEST_F(AttachmentTextTest, openDocument) {
  const std::string content =
      "<o:document-content xmlns:o='o' xmlns:t='t' "
      "xmlns:b='b'><o:scripts><t:p>nein</t:p></o:scripts>"
      "<o:body><t:tracked-changes><t:p>weg</t:p></t:tracked-changes><t:h>Titel</t:h><t:p>ge<t:span>"
      "teilt</t:span><t:tab/>x<t:s/>y</t:p><b:table-cell><t:p>1.234,50</t:p></b:table-cell>"
      "<b:table-cell><t:p>Ende</t:p></b:table-cell>lose</o:body></o:document-content>";
  const std::string styles =
      "<o:document-styles xmlns:o='o' xmlns:t='t'><o:styles><t:p>nein</t:p></o:styles>"
      "<o:master-styles><t:p>Kopf</t:p></o:master-styles></o:document-styles>";
  expectText("text", zipOf({{"content.xml", content}, {"styles.xml", styles}}),
             "Titel\ngeteilt x y\n1.234,50\nEnde\nKopf");
}

TEST_F(AttachmentTextTest, pdf) {
  expectText(
      "hyphens",
      pdfWithLines({"Die Rech-", "nungsnummer RE-2024-", "0815 f\\374r Ein-", "und Ausgang"}),
      "Die Rechnungsnummer RE-2024-\n0815 für Ein-\nund Ausgang");
  expectText("twoPages",
             pdfOf({kPdfCatalog, "<</Type/Pages/Kids[3 0 R 3 0 R]/Count 2>>", kPdfPage,
                    pdfStream("BT /F 12 Tf 50 50 Td (Seite) Tj ET"), kPdfFont}),
             "Seite\nSeite");
  expectText("lostTable", pdfWithLines({"Text"}).replace(300, 400, ""), "", false);
}

TEST_F(AttachmentTextTest, otherXmlAndWhatIsNotRead) {
  const auto invoice = reader_.read(
      "<?xml version='1.0' encoding='iso-8859-1'?><i:Invoice xmlns:i='i'><i:ID>RE-7</i:ID><i:Note>"
      "M\xfcller</i:Note><i:EmbeddedDocumentBinaryObject>JVBERi0x\nLjQK</i:"
      "EmbeddedDocumentBinaryObject><i:T><![CDATA[<b>]]></i:T></i:Invoice>",
      "application/xml", "");
  ASSERT_TRUE(invoice.has_value());
  EXPECT_EQ(invoice->text, "RE-7 Müller <b>");
  EXPECT_TRUE(invoice->readable);

  const Bytes archive = zipOf({{"a.txt", "abc"}});
  EXPECT_FALSE(reader_.read(archive, kUnknown, "a.zip").has_value());
  const auto declared = reader_.read(archive, "", "a.docx");
  ASSERT_TRUE(declared.has_value());
  EXPECT_FALSE(declared->readable);

  AttachmentTextLimits small;
  small.attachmentBytes = 100;
  small.textBytes = 10;
  const AttachmentTextReader limited(helper(), small);
  EXPECT_FALSE(limited.read(pdfWithLines({"Text"}), "application/pdf", "")->readable);
  const auto cut = limited.read("a b c d e f g h " + std::string(500, '\xe4'), "text/plain", "");
  EXPECT_EQ(cut->text, "a b c d e");
  EXPECT_TRUE(cut->readable);
}

/// Documents that try to take all time or memory there is.
std::vector<std::pair<std::string, Bytes>> hostileDocuments() {
  const auto repeated = [](std::string_view text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
  };
  std::string attributes;
  for (int i = 0; i < 300'000; ++i) attributes += " a" + std::to_string(i) + "=''";
  std::string definitions = "<!ENTITY a0 'lol'>";
  for (int i = 1; i < 30; ++i) {
    const std::string inner = repeated("&a" + std::to_string(i - 1) + ";", 10);
    definitions += "<!ENTITY a" + std::to_string(i) + " '" + inner + "'>";
  }
  const std::string selfCall = pdfStream("/X Do /X Do",
                                         "/Type/XObject/Subtype/Form/BBox[0 0 9 9]"
                                         "/Resources<</XObject<</X 6 0 R>>>>");
  const std::string kids = "<</Type/Pages/Kids[2 0 R 2 0 R 3 0 R]/Count ";
  Members manyMembers;
  for (int i = 0; i < 20'000; ++i) manyMembers.emplace_back("m" + std::to_string(i), "");
  return {
      {"entities", packageOf("document.xml", "<!DOCTYPE w [" + definitions +
                                                 "]><document><p><t>"
                                                 "&a29;</t></p></document>")},
      {"externalEntity", packageOf("document.xml",
                                   "<!DOCTYPE w [<!ENTITY e SYSTEM 'file:///etc/"
                                   "passwd'>]><document><t>&e;</t></document>")},
      {"attributes", wordFile("<w:p" + attributes + "/>")},
      {"depth", wordFile(repeated("<w:p>", 500'000))},
      {"blanks", wordFile(std::string(20'000'000, ' '))},
      {"words", wordFile("<w:t>" + repeated("wort ", 2'000'000) + "</w:t>")},
      {"members", wordFile("", manyMembers)},
      {"ownRelations",
       wordFile("<w:p/>", {{"x/_rels/document.xml.rels",
                            relationsTo({{"header", "document.xml"},
                                         {"header", "_rels/document.xml.rels"}})}})},
      {"pageCycle", pdfOf({kPdfCatalog, kids + "3>>", kPdfPage, pdfStream(""), kPdfFont})},
      {"manyPages", pdfOf({kPdfCatalog, kids + "100000>>", kPdfPage, pdfStream(""), kPdfFont})},
      {"selfCall", pdfOf({kPdfCatalog, "<</Type/Pages/Kids[3 0 R]/Count 1>>", kPdfPage,
                          pdfStream("/X Do"), kPdfFont, selfCall})},
      {"nestedArrays", pdfOf({kPdfCatalog, repeated("[", 500'000)})},
      {"longContent", pdfWithLines({repeated("wort) Tj 9 0 Td (", 500'000)})},
  };
}

TEST_F(AttachmentTextTest, hostileDocumentsEndInTime) {
  AttachmentTextLimits limits;
  limits.unpackedBytes = std::uint64_t{16} << 20;
  limits.processorMilliseconds = 1000;
  limits.totalMilliseconds = 10'000;
  const AttachmentTextReader reader(helper(), limits);
  for (const auto& [name, document] : hostileDocuments()) {
    SCOPED_TRACE(name);
    const auto started = std::chrono::steady_clock::now();
    const auto result = reader.read(document, kUnknown, "");
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(12));
    ASSERT_TRUE(result.has_value());
    EXPECT_LE(result->text.size(), limits.textBytes);
    EXPECT_EQ(result->text.find("root:"), std::string::npos);
    EXPECT_EQ(result->text.find("lol"), std::string::npos);
  }
}

TEST_F(AttachmentTextTest, cutDocumentsFromManyThreads) {
  const std::vector<Bytes> documents = {
      wordFile("<w:p><w:t>Text</w:t></w:p>"), pdfWithLines({"Text"}),
      zipOf({{"content.xml", "<a><body><p>Text</p></body></a>"}})};
  std::vector<std::thread> threads;
  for (const Bytes& document : documents) {
    threads.emplace_back([&] {
      for (std::size_t length = 8; length < document.size(); length += 13) {
        const auto cut = reader_.read(document.substr(0, length), kUnknown, "");
        EXPECT_TRUE(cut && (cut->text.empty() || cut->text == "Text")) << length;
        EXPECT_EQ(reader_.read(document, kUnknown, "")->text, "Text");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(AttachmentTextTest, knownDocumentsAreNotReadAgain) {
  const Bytes first = pdfWithLines({"First"});
  const Bytes second = pdfWithLines({"Second"});
  EXPECT_EQ(reader_.read(first, kUnknown, "", "1")->text, "First");
  EXPECT_EQ(reader_.read(second, kUnknown, "", "1")->text, "First") << "was read";
  EXPECT_EQ(reader_.read(second, kUnknown, "", "2")->text, "Second");
  EXPECT_EQ(reader_.read(second, kUnknown, "")->text, "Second");
  const Bytes word = wordFile("<w:p><w:t>Third</w:t></w:p>");
  EXPECT_EQ(reader_.read(word, kUnknown, "", "1")->text, "Third") << "of another kind";
}

TEST_F(AttachmentTextTest, realMail) {
  const auto folder = std::filesystem::path(__FILE__).parent_path() / "../../../shared/samples/eml";
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no sample mail";
  static constexpr struct {
    const char *mail, *file, *words;
    bool readable = true;
  } kCases[] = {
      {"php-mime-mail-parser/issue274.eml", ".docx", "Hello from SwiftMailer !"},
      {"php-mime-mail-parser/issue274.eml", ".pdf", "Hello from SwiftMailer !"},
      {"php-mime-mail-parser/issue274.eml", ".odt", "Hello from SwiftMailer !"},
      {"spamassassin-t/spam/olevbmacro/macro.eml", ".xlsm", "Foglio1\nFoglio2\nFoglio3"},
      {"spamassassin-t/spam/olevbmacro/encrypted.eml", ".docx", "", false},
      {"rspamd/pdf_encrypted.eml", ".pdf", "", false},
      {"mimetreeparser/invitation.eml", ".ics", "John Doe doe2@test.ch"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::string(c.mail) + c.file);
    const Bytes raw = readFile(folder / c.mail);
    bool found = false;
    ParsedMessage(raw).forEachAttachment([&](AttachmentRef&& attachment, DecodedBytes&& bytes) {
      const std::string name = attachment.filename.value_or("");
      if (!name.ends_with(c.file)) return;
      found = true;
      const auto result = reader_.read(bytes.view(), attachment.mimeType, name);
      ASSERT_TRUE(result.has_value());
      EXPECT_NE(result->text.find(c.words), std::string::npos) << result->text;
      EXPECT_EQ(result->readable, c.readable);
    });
    EXPECT_TRUE(found);
  }
}

}  // namespace
}  // namespace ambervane
