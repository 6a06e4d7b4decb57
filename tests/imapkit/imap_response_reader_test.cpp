#include "imapkit/imap_response_reader.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/piece_stream.h"
#include "tests/support/scripted_imap_server.h"

namespace ambervane {
namespace {

using namespace std::literals;

/// Tokens as a line: "a" quoted, {a} literal, (a b) list, ~ for NIL.
std::string shown(const IMAPToken::List& tokens) {
  struct Shown {
    std::string operator()(const IMAPToken::Atom& t) const { return t.text; }
    std::string operator()(const IMAPToken::Quoted& t) const { return '"' + t.text + '"'; }
    std::string operator()(const IMAPToken::Literal& t) const { return '{' + t.bytes + '}'; }
    std::string operator()(const IMAPToken::List& t) const { return '(' + shown(t) + ')'; }
    std::string operator()(const IMAPToken::Nil& /*t*/) const { return "~"; }
  };
  std::string line;
  for (const IMAPToken& token : tokens) {
    line += (line.empty() ? "" : " ") + std::visit(Shown{}, token.value);
  }
  return line;
}

IMAPResponse read(std::vector<BytesView> pieces) {
  PieceStream stream(std::move(pieces));
  return IMAPResponseReader(stream).read();
}

TEST(IMAPResponseReader, readingsAtEverySplit) {
  using Kind = IMAPResponse::Kind;
  const struct {
    const char* name;
    std::string wire;
    Kind kind;
    std::string tag, tokens;
  } kCases[] = {
      {"fetch", "* 3 FETCH (FLAGS (\\Seen) UID 9)\r\n", Kind::untagged, "",
       "3 FETCH (FLAGS (\\Seen) UID 9)"},
      {"twoLiterals", "* 1 FETCH (BODY[1] {4}\r\na\r\n) RFC822 {3+}\r\nxyz UID 7)\r\n",
       Kind::untagged, "", "1 FETCH (BODY[1] {a\r\n)} RFC822 {xyz} UID 7)"},
      {"emptyLiteral", "* 1 FETCH (BODY[] {0}\r\n UID 7)\r\n", Kind::untagged, "",
       "1 FETCH (BODY[] {} UID 7)"},
      {"binaryLiteral", "* X {3}\r\n\0\xff\n\r\n"s, Kind::untagged, "", "X {\0\xff\n}"s},
      {"nil", "* NIL nil Nil \"NIL\" NILS\r\n", Kind::untagged, "", "~ ~ ~ \"NIL\" NILS"},
      {"escapes", "* \"a\\\"b\\\\c\" \"d\\\r\n", Kind::untagged, "", "\"a\"b\\c\" \"d\\\""},
      {"brackets", "* OK [PERMANENTFLAGS (\\Seen \\*)] BODY[HEADER.FIELDS (A B)]<0> x\r\n",
       Kind::untagged, "", "OK [PERMANENTFLAGS (\\Seen \\*)] BODY[HEADER.FIELDS (A B)]<0> x"},
      {"keywordWithBracket", "* 1 FETCH (FLAGS (a[b ]c) UID 4)\r\n", Kind::untagged, "",
       "1 FETCH (FLAGS (a[b ]c) UID 4)"},
      {"literalInSection", "* 1 FETCH (BODY[HEADER.FIELDS ({1}\r\nA)] {2}\r\nhi)\r\n",
       Kind::untagged, "", "1 FETCH (BODY[HEADER.FIELDS (\0)] {hi})"s},
      {"unbalanced", "* ) a (b (c\r\n", Kind::untagged, "", "a (b (c))"},
      {"illFormed", "* \xc3( b\r\n", Kind::untagged, "", "\xef\xbf\xbd (b)"},
      {"nulIsNoLiteral", "* a\0 {1}\r\nx\r\n"s, Kind::untagged, "", "a\xef\xbf\xbd {x}"},
      {"star", "*\r\n", Kind::untagged, "", ""},
      {"tagged", "A0001 OK done\r\n", Kind::tagged, "A0001", "OK done"},
      {"empty", "\r\n", Kind::tagged, "", ""},
      {"continuation", "+ idling\r\n", Kind::continuation, "", "+ idling"},
      {"bareLineFeed", "A OK\n", Kind::tagged, "A", "OK"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const IMAPResponse whole = read({c.wire});
    EXPECT_EQ(whole.kind, c.kind);
    EXPECT_EQ(whole.tag, c.tag);
    EXPECT_EQ(shown(whole.tokens), c.tokens);
    for (std::size_t at = 1; at < c.wire.size(); ++at) {
      SCOPED_TRACE(at);
      EXPECT_EQ(read({BytesView(c.wire).substr(0, at), BytesView(c.wire).substr(at)}), whole);
    }
    EXPECT_EQ(read(PieceStream::cut(c.wire, 1)), whole);
  }
}

TEST(IMAPResponseReader, readsOneResponseAfterTheOther) {
  const Bytes large(700'000, 'm');
  const Bytes wire = "* 1 FETCH (BODY[] {700000}\r\n" + large + ")\r\n* a\nb\r\nA1 OK\r\n";
  for (const std::size_t size : {std::size_t{1000}, std::size_t{16001}, wire.size()}) {
    SCOPED_TRACE(size);
    PieceStream stream(PieceStream::cut(wire, size));
    IMAPResponseReader reader(stream);
    const IMAPResponse first = reader.read();
    EXPECT_EQ(first.rawText, "* 1 FETCH (BODY[] \0)"s);
    EXPECT_EQ(std::get<IMAPToken::Literal>((*first.tokens.at(2).list()).at(1).value).bytes, large);
    EXPECT_EQ(reader.read().rawText, "* a\nb");
    EXPECT_EQ(reader.read().tag, "A1");
  }
}

TEST(IMAPResponseReader, hasHardLimits) {
  const std::string violation = "The server sent something unexpected: the server ";
  const std::string excess =
      violation + "announced more data in one response than a mail server sends";
  const std::string endless = violation + "sent a line without an end to it";
  const std::string ended = "Connection failed: server closed the connection";
  std::string literals = "*";
  for (int i = 0; i < 4096; ++i) literals += " {0}\r\n";
  std::string texts = "*";
  for (int i = 0; i < 17; ++i) texts += std::string(1'000'000, 'a') + "{0}\r\n";
  const struct {
    const char* name;
    std::string wire, failure;
  } kCases[] = {
      {"largestLiteral", "* {268435456}\r\nabc", ended},
      {"tooLarge", "* {268435457}\r\n", violation + "announced 268435457 bytes in one piece"},
      {"beyondAnyNumber", "* {99999999999999999999}\r\n",
       violation + "announced 99999999999999999999 bytes in one piece"},
      {"tooLargeTogether", "* {10}\r\n0123456789 {268435447}\r\n", excess},
      {"mostLiterals", literals + "\r\n", ended},
      {"tooManyLiterals", literals + " {0}\r\n", excess},
      {"tooMuchText", texts, excess},
      {"longestLine", std::string(1'048'576, 'a'), ended},
      {"endlessLine", std::string(1'048'577, 'a'), endless},
      {"tooLongALine", std::string(1'048'577, 'a') + "\r\n", endless},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    PieceStream stream({c.wire});
    IMAPResponseReader reader(stream);
    EXPECT_EQ(failure([&] {
                for (;;) reader.read();
              }),
              c.failure);
  }
}

TEST(IMAPResponse, readsAnyDepth) {
  const std::string open(100'000, '(');
  const IMAPResponse response =
      read({"* " + open + "x" + std::string(100'000, ')') + " y" + "\r\n"});
  EXPECT_EQ(response.tokens.size(), 2U);
  EXPECT_TRUE(response.hasAtom(1, "Y"));
  EXPECT_EQ(read({"* " + open + "\r\n"}).tokens.size(), 1U);
}

TEST(IMAPResponse, hasACode) {
  const IMAPResponse response = read({"* OK [uidnext 9] [UIDVALIDITY 3]\r\n"});
  EXPECT_EQ(response.responseCode(), "uidnext 9");
  EXPECT_EQ(response.responseCodeValue("UIDNEXT"), "9");
  EXPECT_EQ(response.responseCodeValue("UID"), std::nullopt);
  EXPECT_EQ(response.responseCodeValue("UIDVALIDITY"), std::nullopt);
  EXPECT_EQ(read({"* OK [ALERT\r\n"}).responseCode(), std::nullopt);
  EXPECT_EQ(read({"* OK [ALERT] x\r\n"}).responseCodeValue("alert"), "");
}

}  // namespace
}  // namespace ambervane
