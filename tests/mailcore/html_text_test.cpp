#include "mailcore/html_text.h"

#include <gtest/gtest.h>

#include <string>

#include "mailcore/html_entities.h"

namespace ambervane {
namespace {

TEST(HtmlText, strip) {
  static const struct {
    const char* name;
    std::string html, text;
  } kCases[] = {
      {"empty", "", ""},
      {"whiteSpaceCollapses", " a \t\r\n b&nbsp;&#32; \u2003c\u3000", "a b c"},
      {"inlineTagsJoin", "w<b>or</b>d <a href=x>li</a>nk", "word link"},
      {"blocksSeparate", "a<p>b</p><DIV\n>c</DIV>d<br/>e<hr>f", "a\nb\nc\nd\ne\nf"},
      {"cellsSeparate", "<tr><td>a</td><td>b</td></tr><tr><td>c", "a b\nc"},
      {"preKeepsLines", "x\ny<pre>a\nb</pre>c\nd", "x y\na\nb\nc d"},
      {"scriptAndStyle", "a<script>if (1<2) '</p>'</script>b<STYLE>x</style\n>c", "a b c"},
      {"titleIsNoText", "<head><title>T &amp; <b></title></head>x", "x"},
      {"rawTextNeedsItsOwnEnd", "<script></scripty></script >x", "x"},
      {"emptyRawElement", "<title/>x<script src=y />z", "x z"},
      {"unclosedScript", "a<script>b", "a"},
      {"comment", "a<!-- <p> -- > -->b<!-->c<!--->d<!-- --!>e", "abcde"},
      {"conditionalComment", "<!--[if mso]>no<![endif]--><![if !mso]>yes<![endif]>", "yes"},
      {"unclosedComment", "a<!-- b", "a"},
      {"declarations", "<!DOCTYPE html><?xml version='1'?>a</>b</ x>c", "abc"},
      {"notATag", "1 < 2 <3 <", "1 < 2 <3 <"},
      {"angleInQuotes", "<a title='x > y' b=\"z > \">c", "c"},
      {"quoteOutsideValue", "<p \"a>b<p it's>c", "b\nc"},
      {"quoteInUnquotedValue", "<a href=x'y>b", "b"},
      {"unclosedQuoteEndsAtAngle", "<a href=\"x>b</a> c", "b c"},
      {"tagCutShort", "a<a href=\"x", "a"},
      {"unknownName", "&foo; & &; AT&T", "&foo; & &; AT&T"},
      {"numeric", "&#65;&#x42;&#X43 &#x1F600;", "ABC 😀"},
      {"numericWindows1252", "&#128;&#150;&#129;", "€–\u0081"},
      {"numericImpossible", "&#0;&#xD800;&#99999999999;&#;&#x;", "\ufffd\ufffd\ufffd&#;&#x;"},
      {"nulIsDropped", std::string("a\0b", 3), "ab"},
      {"illFormed", "a\xff<b>\xc3", "a\ufffd\ufffd"},
      {"otherScripts", "Größe <i>日本</i>語", "Größe 日本語"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(HTMLText::strip(c.html), c.text);
  }
}

TEST(HtmlEntities, lookup) {
  EXPECT_EQ(htmlCharacter("AElig"), "Æ");
  EXPECT_EQ(htmlCharacter("zwnj"), "\u200c");
  EXPECT_EQ(htmlCharacter("CounterClockwiseContourIntegral"), "∳");
  EXPECT_EQ(htmlCharacter("aelIg"), "");
  EXPECT_EQ(htmlLegacyPrefix("notin").length, 3U);
  EXPECT_EQ(htmlLegacyPrefix("n").length, 0U);
}

}  // namespace
}  // namespace ambervane
