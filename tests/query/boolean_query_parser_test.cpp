#include "query/boolean_query_parser.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "query/search_query_parser.h"
#include "tests/query/rendering.h"
#include "tests/support/hostile_queries.h"

namespace ambervane {
namespace {

TEST(BooleanQueryParser, needsTree) {
  static constexpr struct {
    const char* line;
    bool needed;
  } kCases[] = {
      {"", false},
      {"from:anna rechnung", false},
      {"a AND b + c && d und e", false},
      {"a or b", true},
      {"a ODER b", true},
      {"a || b", true},
      {"Not a", true},
      {"a ! b", true},
      {"nicht a", true},
      {"\"or\" \"a or b\" xor", false},
      {"subject:\"a or b\"", false},
      {"(", true},
      {"\"a)b\"", true},
      {"flag:seen", true},
      {"KOPFZEILE:x", true},
      {"flag:", true},
      {":flag header", false},
      {"-flag:seen", false},
      {"-from:x", false},
      {"cc:anna domain:x", false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(BooleanQueryParser::needsTree(c.line), c.needed);
  }
}

TEST(BooleanQueryParser, grammar) {
  static constexpr struct {
    const char *line, *tree;
  } kCases[] = {
      {"a or b", "any[anyText contains a; anyText contains b]"},
      {"a oder b || c", "any[anyText contains a; anyText contains b; anyText contains c]"},
      {"a NOT b", "all[anyText contains a; none[anyText contains b]]"},
      {"NOT a", "none[anyText contains a]"},
      {"NOT a b", "all[none[anyText contains a]; anyText contains b]"},
      {"NOT ! nicht a", "none[none[none[anyText contains a]]]"},
      {"a b or c d", "any[anyText contains a b; anyText contains c d]"},
      {"(a or b) c", "all[any[anyText contains a; anyText contains b]; anyText contains c]"},
      {"a (b c) d", "all[anyText contains a; anyText contains b c; anyText contains d]"},
      {"NOT (a or b)", "none[any[anyText contains a; anyText contains b]]"},
      {"((((a))))", "anyText contains a"},
      {"(a)or(b)", "any[anyText contains a; anyText contains b]"},
      // Loose words: an atom leaves them together, anything of structure does not.
      {"(alpha from:anna beta", "all[from contains anna; anyText contains alpha beta]"},
      {"(alpha AND beta", "anyText contains alpha beta"},
      {"(alpha -from:x beta",
       "all[anyText contains alpha; none[from contains x]; "
       "anyText contains beta]"},
      {"(\"a b\" c", "anyText contains a b c"},
      {"(a\"b (c\" d", "anyText contains a\"b (c\" d"},
      {"x or \"a", "any[anyText contains x; anyText contains \"a]"},
      // Only conditions are excluded with "-".
      {"(-b", "nothing"},
      {"a or -b", "anyText contains a"},
      {"(-from:x -has:foo - a", "all[none[from contains x]; anyText contains - a]"},
      {"NOT -from:x", "none[anyText contains -from:x]"},
      // Brackets and operators that lack something.
      {"(a or (b", "any[anyText contains a; anyText contains b]"},
      {"a) or b", "anyText contains a"},
      {"(a or b)) c", "any[anyText contains a; anyText contains b]"},
      {"()", "nothing"},
      {"() a", "nothing"},
      {"a () b", "anyText contains a"},
      {"a () or b", "any[anyText contains a; anyText contains b]"},
      {"(a () b) c", "all[anyText contains a; anyText contains b]"},
      {"NOT () a", "anyText contains a"},
      {"a NOT", "anyText contains a"},
      {"a NOT or b", "any[anyText contains a; anyText contains b]"},
      {"or a", "anyText contains a"},
      {"a or", "anyText contains a"},
      {"a or or b", "anyText contains a"},
      {"(a or or b) c", "any[anyText contains a; anyText contains b]"},
      {"a or \"\" or b", "any[anyText contains a; anyText contains b]"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(rendered(BooleanQueryParser::parse(c.line)), c.tree);
  }
}

TEST(BooleanQueryParser, atoms) {
  static constexpr struct {
    const char *atom, *condition;
  } kCases[] = {
      {"inhalt:X", "anyText contains X"},
      {"Betreff:\"a b\"", "subject contains a b"},
      {"VON:Anna", "from contains Anna"},
      {"domäne:x.ch", "fromDomain contains x.ch"},
      {"DOMA\u0308NE:x.ch", "fromDomain contains x.ch"},
      {"EMPFÄNGER:b", "recipient contains b"},
      {"cc:b", "cc contains b"},
      {"anyone:b", "participant contains b"},
      {"in:a:b", "folder contains a:b"},
      {"konto:b", "account contains b"},
      {"attachment:b", "attachmentName contains b"},
      {"typ:b", "attachmentType contains b"},
      {"prüfsumme:ABC", "digest beginsWith abc"},
      {"klasse:Contract", "retentionClass isEqual Contract"},
      {"seit:x", "sentDate after x"},
      {"bis:2024", "sentDate before 2024"},
      {"am:2024", "sentDate onDate 2024"},
      {"neuer:30", "sentDate inLastDays 30"},
      {"größer:1k", "size greaterThan 1k"},
      {"kleiner:1k", "size lessThan 1k"},
      {"jahr:+02023", "sentDate after 2023"},
      {"year:x", "anyText contains year:x"},
      {"has:Anhang", "hasAttachment isTrue"},
      {"has:held", "onLegalHold isTrue"},
      {"has:foo", "anyText contains has:foo"},
      {"is:gelöscht", "isErased isTrue"},
      {"is:ERASED", "isErased isTrue"},
      {"is:held", "onLegalHold isTrue"},
      {"is:attachment", "anyText contains is:attachment"},
      {"flagge:seen", "flag contains seen"},
      {"header:\"x-a: b\"", "header contains x-a: b"},
      {"from:", "anyText contains from:"},
      {"from:\"\"", "anyText contains from:\"\""},
      {":from", "anyText contains :from"},
      {"http://x", "anyText contains http://x"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.atom);
    const auto tree = BooleanQueryParser::parse(std::string("NOT ") + c.atom);
    EXPECT_EQ(rendered(tree), "none[" + std::string(c.condition) + "]");
  }
}

TEST(BooleanQueryParser, everyNodeHasAnIdentifierOfItsOwn) {
  const auto tree = BooleanQueryParser::parse("a or b");
  ASSERT_TRUE(tree);
  std::set<std::string> ids = {tree->id()};
  for (const FilterNode& child : tree->asGroup()->children) ids.insert(child.id());
  EXPECT_EQ(ids.size(), 3U);
  for (const std::string& id : ids) EXPECT_EQ(id.size(), 36U);
}

TEST(BooleanQueryParser, depth) {
  const auto depth = [](const std::string& line) {
    const auto tree = BooleanQueryParser::parse(line);
    return tree ? tree->depth() : 0;
  };
  EXPECT_EQ(depth(repeated("(", 10'000) + "a" + repeated(")", 10'000)), 1);
  EXPECT_EQ(depth(repeated("NOT ", 199) + "a"), 200);
  EXPECT_EQ(depth(repeated("NOT ", 200) + "a"), 0);
  // Each pair of brackets is two groups, and the words beside the cut stay.
  EXPECT_EQ(depth(repeated("(a or (b ", 10'000)), 200);
}

}  // namespace
}  // namespace ambervane
