#include "mailcore/parsed_message.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/digest.h"
#include "base/file.h"
#include "base/text.h"

namespace ambervane {
namespace {

using testing::ElementsAre;

/// A multipart/mixed message of these parts, each given from its header on.
std::string mixed(const std::vector<std::string>& parts) {
  std::string bytes = "Content-Type: multipart/mixed; boundary=b\n\n";
  for (const std::string& part : parts) bytes += "--b\n" + part + "\n";
  return bytes + "--b--\n";
}

TEST(ParsedMessage, headerFields) {
  const std::string raw =
      "From: =?utf-8?q?J=C3=A9?= <j@x>\nSender: s@x\nReply-To: r@x\nTo: a@x\nTo: b@x\nCc: c@x\n"
      "Bcc: d@x\nSubject: =?utf-8?q?=C3=A9?=\nDate: 5 Feb 2024 10:00 +0000\n"
      "Message-ID:  <m@x> \nIn-Reply-To: <a@x> <b@x>\nReferences: <a@x>\t<b@x>\n <> <c@x>\n\nx";
  const ParsedMessage message(raw);
  EXPECT_EQ(message.subject(), "é");
  EXPECT_THAT(message.from(), ElementsAre(MailAddress{"Jé", "j@x", {}}));
  EXPECT_THAT(message.sender(), ElementsAre(MailAddress{{}, "s@x", {}}));
  EXPECT_THAT(message.replyTo(), ElementsAre(MailAddress{{}, "r@x", {}}));
  EXPECT_THAT(message.to(), ElementsAre(MailAddress{{}, "a@x", {}}));
  EXPECT_THAT(message.cc(), ElementsAre(MailAddress{{}, "c@x", {}}));
  EXPECT_THAT(message.bcc(), ElementsAre(MailAddress{{}, "d@x", {}}));
  EXPECT_EQ(message.date(), Date{1707127200});
  EXPECT_EQ(message.messageID(), "m@x");
  EXPECT_EQ(message.inReplyTo(), "a@x> <b@x");
  EXPECT_THAT(message.references(), ElementsAre("a@x", "b@x", "c@x"));
  EXPECT_EQ(message.size(), raw.size());
  EXPECT_EQ(message.sha256(), sha256Hex(raw));

  const ParsedMessage bare("Message-ID: <>\n\n");
  EXPECT_EQ(bare.subject(), "");
  EXPECT_EQ(bare.messageID(), std::nullopt);
  std::string many = "References:";
  for (std::size_t i = 0; i < kMaxReferences + 5; ++i) many += " a";
  EXPECT_EQ(ParsedMessage(many).references().size(), kMaxReferences);
  EXPECT_TRUE(bare.to().empty() && bare.references().empty() && !bare.date());
}

TEST(ParsedMessage, normalizedSubject) {
  static const struct {
    const char* name;
    std::string subject, expected;
  } kCases[] = {
      {"plain", "  Hello ", "Hello"},
      {"prefixes", "Fwd: AW:re:SV: Hello", "Hello"},
      {"french", "RÉF: Hello", "Hello"},
      {"frenchDecomposed", "Re\u0301f: He\u0301", "Hé"},
      {"blankBeforeColon", "Re : Hello", "Re : Hello"},
      {"counted", "Re[2]: Hello", "Re[2]: Hello"},
      {"listTagBeforeReply", "Re: [list] Re: Hello", "Hello"},
      {"listTagStays", "[list] Hello", "[list] Hello"},
      {"listTagBehindReply", "Re: [list] Hello", "[list] Hello"},
      {"listTagBeforeForward", "[list] Fwd: Hello", "[list] Fwd: Hello"},
      {"tagOf40", "[" + std::string(38, 'x') + "] re: a", "a"},
      {"tagOf41", "[" + std::string(39, 'x') + "] re: a", "[" + std::string(39, 'x') + "] re: a"},
      {"nothingLeft", "Re: re:", ""},
      {"wordOnly", "Regards", "Regards"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(normalizedSubject(c.subject), c.expected);
  }
  std::string many;
  while (many.size() < 1'000'000) many += "Re: [a] ";
  EXPECT_EQ(normalizedSubject(many + "x"), "[a] x");
}

/// Which of the parts, one in each row, count as attachments of a multipart message.
TEST(ParsedMessage, whatIsAnAttachment) {
  static constexpr struct {
    const char* name;
    const char* header;
    bool expected;
  } kCases[] = {
      {"text", "Content-Type: text/plain\n", false},
      {"html", "Content-Type: text/html\nContent-Disposition: inline\n", false},
      {"attachedText", "Content-Disposition: ATTACHMENT\n", true},
      {"namedText", "Content-Type: text/plain; name=a\n", true},
      {"namedInlineText", "Content-Disposition: inline; filename=a\n", true},
      {"emptyName", "Content-Type: text/plain; name=\"\"\n", false},
      {"namedByFirstThatIsNotEmpty",
       "Content-Type: text/plain; name=a\nContent-Disposition: inline; filename=\n", true},
      {"image", "Content-Type: image/png\n", true},
      {"inlineImage", "Content-Type: image/png\nContent-Disposition: inline\n", true},
      {"unnamedMessage", "Content-Type: message/delivery-status\n", false},
      {"namedMessage", "Content-Type: message/delivery-status; name=a\n", true},
      {"multipart", "Content-Type: multipart/x; name=a\n", false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const std::string raw = mixed({std::string(c.header) + "\nbody"});
    const ParsedMessage message(raw);
    EXPECT_EQ(message.hasAttachments(), c.expected);
    EXPECT_EQ(message.attachments().size(), c.expected ? 1U : 0U);
  }
}

TEST(ParsedMessage, attachmentIsDescribedInFull) {
  const std::string raw = mixed({"\ntext",
                                 "Content-Type: Image/PNG\nContent-Transfer-Encoding: Base64\n"
                                 "Content-ID:  <<i@x>> \nContent-Disposition: attachment;\n"
                                 " filename*=utf-8''%c3%a9.png\n\nYWJj\nZGVm"});
  const ParsedMessage message(raw);
  const AttachmentRef expected = {
      .filename = "é.png",
      .mimeType = "image/png",
      .charset = "",
      .section = "2",
      .encodedRange = {raw.find("YWJj"), raw.find("YWJj") + 9},
      .encodedSize = 9,
      .decodedSize = 6,
      .transferEncoding = TransferEncoding::base64,
      .contentID = "i@x",
      .isInline = true,
      .contentHash = sha256Hex("abcdef"),
      .encodedHash = sha256Hex("YWJj\nZGVm"),
  };
  EXPECT_THAT(message.attachments(), ElementsAre(expected));
  message.forEachAttachment([](AttachmentRef&&, DecodedBytes&& decoded) {
    EXPECT_EQ(std::move(decoded).take(), "abcdef");
  });
}

/// "section name" of each attachment, "!" behind those that are inline.
std::vector<std::string> listed(const ParsedMessage& message) {
  std::vector<std::string> result;
  for (const AttachmentRef& a : message.attachments()) {
    result.push_back(a.section + " " + a.filename.value_or("-") + (a.isInline ? "!" : ""));
  }
  return result;
}

TEST(ParsedMessage, attachmentsInOrder) {
  const std::string embedded =
      "Content-Type: message/rfc822; name=m.eml\n\nContent-Type: multipart/x; boundary=c\n\n"
      "--c\nContent-Type: image/gif\nContent-Disposition: inline\n\nx\n--c--";
  const std::string raw = mixed({"\nx", embedded, "Content-Type: a/b; name=f\n\nx"});
  EXPECT_THAT(listed(ParsedMessage(raw)), ElementsAre("2 m.eml", "2.1.1 -!", "3 f"));
  EXPECT_THAT(listed(ParsedMessage("Content-Type: application/pdf\n\nx")), ElementsAre("1 -"));
  EXPECT_THAT(listed(ParsedMessage("Content-Disposition: attachment; filename=x.txt\n\nx")),
              ElementsAre());
}

TEST(ParsedMessage, texts) {
  const std::string plain = "Content-Type: text/plain; charset=iso-8859-1\n\n\xe9";
  const std::string html = "Content-Type: text/html\n\n<p>a&amp;b</p>";
  const std::string calendar = "Content-Type: text/calendar\n\nBEGIN";
  const std::string file = "Content-Type: text/plain; name=f\n\nfile";
  static const struct {
    const char* name;
    std::string raw, plainText, all;
    std::optional<std::string> html;
  } kCases[] = {
      {"plainOnly", plain, "é", "é", {}},
      {"htmlOnly", html, "a&b", "a&b", "<p>a&amp;b</p>"},
      {"both", mixed({html, plain, calendar}), "é", "a&b\né\nBEGIN", "<p>a&amp;b</p>"},
      {"firstOfEachKind", mixed({plain, "\nsecond"}), "é", "é\nsecond", {}},
      {"fileIsNoBody", mixed({file, html}), "a&b", "a&b", "<p>a&amp;b</p>"},
      {"otherTextInMultipart", mixed({calendar}), "", "BEGIN", {}},
      {"otherTextAsRoot", calendar, "BEGIN", "BEGIN", {}},
      {"encoded", "Content-Transfer-Encoding: quoted-printable\n\n=C3=A9=\n!", "é!", "é!", {}},
      {"embeddedMessage",
       mixed({"Content-Type: message/rfc822\n\nA: b\n\ninner"}),
       "inner",
       "inner",
       {}},
      {"noParts", "Content-Type: multipart/mixed; boundary=b\n\nlost", "", "lost", {}},
      {"attachedRoot", "Content-Disposition: attachment\n\nbody", "", "body", {}},
      {"binaryRoot", "Content-Type: application/x\n\n\xff\xfe", "", "", {}},
      {"emptyText", "A: b\n\n", "", "", {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const ParsedMessage message(c.raw);
    EXPECT_EQ(message.plainTextBody(), c.plainText);
    EXPECT_EQ(message.htmlBody(), c.html);
    EXPECT_EQ(message.allTextForIndexing(), c.all);
    EXPECT_EQ(message.texts().plainTextBody, c.plainText);
  }
}

TEST(ParsedMessage, fallbackTextIsCutBetweenCharacters) {
  const std::size_t limit = 1U << 20;
  std::string body(limit - 1, 'a');
  const std::string head = "Content-Type: application/x\n\n";
  EXPECT_EQ(ParsedMessage(head + body + "é").allTextForIndexing(), body);
  EXPECT_EQ(ParsedMessage(head + body + "xé").allTextForIndexing(), body + "x");
}

/// Whatever the bytes, the reading must not fail and every text must be UTF-8.
TEST(ParsedMessage, sharedSamplesReadWithoutFault) {
  const auto folder = std::filesystem::path(__FILE__).parent_path() / "../../../shared/samples/eml";
  std::error_code none;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, none)) {
    if (entry.path().extension() != ".eml") continue;
    SCOPED_TRACE(entry.path().string());
    const auto raw = readFileIfPossible(entry.path());
    if (!raw) continue;
    const ParsedMessage message(*raw);
    EXPECT_TRUE(isValidUtf8(message.headers().serialized()));
    EXPECT_TRUE(isValidUtf8(message.subject()));
    EXPECT_TRUE(isValidUtf8(message.texts().all));
    EXPECT_EQ(message.texts().plainTextBody, message.plainTextBody());
    EXPECT_EQ(message.attachments().empty(), !message.hasAttachments());
  }
}

}  // namespace
}  // namespace ambervane
