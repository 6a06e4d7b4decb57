#include "mailcore/mime_parser.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>

namespace ambervane {
namespace {

/// The tree as "section type{body}(children)"; bodies of leaves only.
std::string outline(const MIMEPart& part, BytesView data) {
  std::string text = part.section() + " " + part.contentType().value;
  if (part.children().empty()) return text + "{" + std::string(part.rawBody(data)) + "}";
  text += "(";
  for (const auto& child : part.children()) {
    if (child != part.children().front()) text += ", ";
    text += outline(*child, data);
    EXPECT_EQ(child->parent(), &part);
    EXPECT_GE(child->fullRange().begin, part.bodyRange().begin);
    EXPECT_LE(child->fullRange().end, part.bodyRange().end);
  }
  return text + ")";
}

std::string mixed(std::string_view body) {
  return "Content-Type: multipart/mixed; boundary=b\n\n" + std::string(body);
}

TEST(MimeParser, structure) {
  static const struct {
    const char* name;
    std::string bytes, expected;
  } kCases[] = {
      {"empty", "", "1 text/plain{}"},
      {"headersOnly", "Subject: x\n", "1 text/plain{}"},
      {"plain", "Subject: x\r\n\r\nbody\r\n", "1 text/plain{body\r\n}"},
      {"blankType", "Content-Type: \n\nx", "1 text/plain{x}"},
      {"multipart", mixed("pre\n--b\nContent-Type: text/html\n\nA\n--b\n\nB\n--b--\npost"),
       " multipart/mixed(1 text/html{A}, 2 text/plain{B})"},
      {"crlf", "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n--b\r\n\r\nA\r\n\r\n--b--\r\n",
       " multipart/mixed(1 text/plain{A\r\n})"},
      {"noClosingDelimiter", mixed("--b\n\nA\n--b\n\nB\n"),
       " multipart/mixed(1 text/plain{A}, 2 text/plain{B})"},
      {"nothingBehindClosing", mixed("--b\n\nA\n--b--\n--b\n\nB\n"),
       " multipart/mixed(1 text/plain{A})"},
      {"delimiterInsideLine", mixed("--b\n\nA --b\n--b--"),
       " multipart/mixed(1 text/plain{A --b})"},
      {"longerBoundary", mixed("--b\n\nA\n--bb\nx\n--b-\n--b--x\n--b \t\n\nB\n--b-- "),
       " multipart/mixed(1 text/plain{A\n--bb\nx\n--b-\n--b--x}, 2 text/plain{B})"},
      {"emptyParts", mixed("--b\n--b\n--b--"), " multipart/mixed(1 text/plain{}, 2 text/plain{})"},
      {"delimiterEndsData", mixed("--b\n\nA\n--b"),
       " multipart/mixed(1 text/plain{A}, 2 text/plain{})"},
      {"onlyClosing", mixed("--b--\n"), " multipart/mixed{--b--\n}"},
      {"boundaryNeverOccurs", mixed("text"), " multipart/mixed{text}"},
      {"noBoundary", "Content-Type: multipart/mixed\n\n--\nx", " multipart/mixed{--\nx}"},
      {"emptyBoundary", "Content-Type: multipart/mixed; boundary=\"\"\n\n--\nx",
       " multipart/mixed{--\nx}"},
      {"crBelongsToDelimiter",
       "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n\r\nA\r\r\n--b--",
       " multipart/mixed(1 text/plain{A\r})"},
      {"partWithoutHeaders",
       "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n\r\nA\r\n\r\nB\r\n--b\n\nC\n\nD",
       " multipart/mixed(1 text/plain{A\r\n\r\nB}, 2 text/plain{C\n\nD})"},
      {"headersEndAtCrlfEvenInsideBody", mixed("--b\r\n\r\nA\r\n--b--"),
       " multipart/mixed{A\r\n--b--}"},
      {"partWithoutBody", mixed("--b\nContent-Type: text/html\n--b--"),
       " multipart/mixed(1 text/html{})"},
      {"nested",
       mixed("--b\nContent-Type: multipart/x; boundary=bb\n\n--bb\n\nA\n--bb--\n--b\n\nB\n--b--"),
       " multipart/mixed(1 multipart/x(1.1 text/plain{A}), 2 text/plain{B})"},
      {"rootMessage", "Content-Type: message/rfc822\n\nSubject: x\n\nA",
       "1 message/rfc822(1.1 text/plain{A})"},
      {"emptyEmbedded", "Content-Type: message/rfc822\n\n", "1 message/rfc822{}"},
      {"embeddedMultipartHasOwnLevel",
       mixed("--b\n\nA\n--b\nContent-Type: Message/Global\n\nContent-Type: multipart/x; "
             "boundary=c\n\n--c\n\nB\n--c--\n--b--"),
       " multipart/mixed(1 text/plain{A}, 2 message/global(2.1 multipart/x(2.1.1 "
       "text/plain{B})))"},
      {"digest",
       "Content-Type: multipart/digest; boundary=b\n\n--b\n\nSubject: x\n\nA\n--b\nContent-Type: "
       "text/plain\n\nB\n--b--",
       " multipart/digest(1 message/rfc822(1.1 text/plain{A}), 2 text/plain{B})"},
      {"embeddedInDigestIsPlain",
       "Content-Type: multipart/digest; boundary=b\n\n--b\n\n\nSubject: x\n\nA\n--b--",
       " multipart/digest(1 message/rfc822(1.1 text/plain{A}))"},
      {"nul", std::string("A: b\n\n\0x", 8), "1 text/plain{" + std::string("\0x", 2) + "}"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(outline(*MIMEParser::parse(c.bytes), c.bytes), c.expected);
  }
}

TEST(MimeParser, rangesCountFromTheMessage) {
  const std::string bytes = mixed("--b\nA: x\n\nbody\n--b--");
  const auto root = MIMEParser::parse(bytes);
  ASSERT_EQ(root->children().size(), 1U);
  const MIMEPart& part = *root->children()[0];
  EXPECT_EQ(slice(bytes, part.fullRange()), "A: x\n\nbody");
  EXPECT_EQ(slice(bytes, part.headerRange()), "A: x");
  EXPECT_EQ(slice(bytes, part.bodyRange()), "body");
  EXPECT_EQ(root->fullRange(), (ByteRange{0, bytes.size()}));
  const auto bare = MIMEParser::parse("A: b\n");
  EXPECT_EQ(bare->bodyRange(), (ByteRange{5, 5}));
}

TEST(MimeParser, nestingEndsAtTheLimit) {
  std::string multiparts;
  std::string messages;
  for (int i = 0; i < 500; ++i) {
    multiparts += fmt::format("Content-Type: multipart/mixed; boundary={0}x\n\n--{0}x\n", i);
    messages += "Content-Type: message/rfc822\n\n";
  }
  for (const std::string& bytes : {multiparts, messages}) {
    const auto root = MIMEParser::parse(bytes);
    int depth = 0;
    const MIMEPart* part = root.get();
    for (; !part->children().empty(); ++depth) part = part->children()[0].get();
    EXPECT_EQ(depth, kMaxMimeDepth);
    EXPECT_TRUE(part->isMultipart() || part->isRFC822());
    EXPECT_FALSE(part->bodyRange().empty());
  }
}

TEST(MimeParser, partLimitLosesNoBytes) {
  std::string bytes = mixed("");
  for (std::size_t i = 0; i < kMaxMimeParts + 10; ++i) bytes += "--b\n";
  const auto root = MIMEParser::parse(bytes);
  ASSERT_EQ(root->children().size(), kMaxMimeParts);
  EXPECT_EQ(root->children().back()->fullRange().end, bytes.size() - 1);
}

}  // namespace
}  // namespace ambervane
