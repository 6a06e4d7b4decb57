#include "query/german_folding.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ambervane {
namespace {

TEST(GermanFolding, expand) {
  static constexpr struct {
    const char* name;
    std::string_view text, expanded;
    bool needed = true;
  } kCases[] = {
      {"lowerCase", "äöüßåæø", "aeoeuessaaaeoe"},
      {"upperCase", "ÄÖÜẞÅÆØ", "AeOeUeSSAaAeOe"},
      {"inWords", "Größe über alles", "Groesse ueber alles"},
      {"decomposed", "Mu\u0308ller A\u030a", "Mueller Aa"},
      {"plain", "Groesse", "Groesse", false},
      {"otherLettersOfTheSameLead", "éàçñÉ", "éàçñÉ", false},
      {"neighbourOfCapitalSharpS", "ẝẟ", "ẝẟ", false},
      {"secondByteOfAnotherCharacter", "中\xe4\xb8\x9fい", "中\xe4\xb8\x9fい", false},
      {"cutLetterAtTheEnd", "M\xc3", "M\xc3", false},
      {"cutSharpSAtTheEnd", "M\xe1\xba", "M\xe1\xba", false},
      {"empty", "", "", false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(GermanFolding::expand(c.text), c.expanded);
    EXPECT_EQ(GermanFolding::needsExpansion(c.text), c.needed);
  }
}

TEST(GermanFolding, indexVariants) {
  static constexpr struct {
    const char* name;
    std::string_view text, variants;
    std::size_t limit = 4000;
  } kCases[] = {
      {"onlyWordsWithSuchALetter", "Herr Müller grüsst Frau Meier", "mueller gruesst"},
      {"decomposed", "Mu\u0308ller e\u0301", "mueller"},
      {"hyphenStaysInTheWord", "(Müller-Lüdenscheidt)", "mueller-luedenscheidt"},
      {"eachOnceWhateverItsCase", "Müller MÜLLER müller", "mueller"},
      {"numbersBelongToWords", "Größe42²", "groesse42²"},
      {"otherLettersAreLowerCasedToo", "ÉTÉ-Übergang ΣÄ", "été-uebergang σae"},
      {"underscoreAndDotSeparate", "süß_größe.öl", "suess groesse oel"},
      {"oneLetterBecomesTwo", "Ö", "oe"},
      {"illFormedByteEndsAWord",
       "\xff"
       "ü\xff"
       "b",
       "ue"},
      {"limit", "ä ö ü", "ae oe", 2},
      {"repetitionsDoNotCountForTheLimit", "ä ä ö", "ae oe", 2},
      {"limitOfNone", "ä", "", 0},
      {"plain", "Mueller", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(GermanFolding::indexVariants(c.text, c.limit), c.variants);
  }
}

TEST(GermanFolding, contract) {
  using Text = std::optional<std::string>;
  static const struct {
    const char* name;
    std::string_view text;
    Text withoutSharpS, withSharpS;
  } kCases[] = {
      {"umlaut", "Mueller", "Müller", "Müller"},
      {"capitals", "AErger OEl Uebung", "Ärger Öl Übung", "Ärger Öl Übung"},
      {"capitalFirstDecides", "aErger", "ärger", "ärger"},
      {"sharpS", "STRASSE", std::nullopt, "STRAßE"},
      {"both", "Muesse", "Müsse", "Müße"},
      {"pairsFromTheLeft", "queue sss", "qüü sss", "qüü ßs"},
      {"decomposed", "Blue\u0301", std::nullopt, std::nullopt},
      {"nothing", "Meier", std::nullopt, std::nullopt},
      {"pairAcrossTheEnd", "tea", std::nullopt, std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(GermanFolding::contract(c.text, false), c.withoutSharpS);
    EXPECT_EQ(GermanFolding::contract(c.text), c.withSharpS);
  }
}

TEST(GermanFolding, queryVariants) {
  static const struct {
    const char* name;
    std::string_view word;
    std::vector<std::string> variants, contractions;
  } kCases[] = {
      {"umlautTyped", "Müller", {"Müller", "Mueller"}, {}},
      {"decomposedTyped", "Mu\u0308ller", {"Müller", "Mueller"}, {}},
      {"expansionTyped", "Mueller", {"Mueller", "Müller"}, {"Müller"}},
      {"sharpSOnly", "Strasse", {"Strasse", "Straße"}, {"Straße"}},
      {"twoContractions", "Muesse", {"Muesse", "Müsse", "Müße"}, {"Müsse", "Müße"}},
      {"expandedAndContracted", "Grüsse", {"Grüsse", "Gruesse", "Grüße"}, {"Grüße"}},
      {"plain", "Anna", {"Anna"}, {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(GermanFolding::queryVariants(c.word), c.variants);
    EXPECT_EQ(GermanFolding::contractions(c.word), c.contractions);
  }
}

}  // namespace
}  // namespace ambervane
