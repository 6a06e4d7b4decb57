#include "query/filter_node.h"

#include <gtest/gtest.h>

#include <string>

#include "base/json.h"
#include "query/filter_json.h"
#include "query/filter_value.h"
#include "query/query_builder.h"
#include "query/search_query_parser.h"
#include "query/smart_folder.h"
#include "tests/query/rendering.h"
#include "tests/support/hostile_queries.h"

namespace ambervane {
namespace {

using Field = FilterField;
using Op = FilterOperator;

constexpr const char* kFilter =
    R"({"group":{"_0":{"children":[{"rule":{"_0":{"field":"from","id":"R-1","op":"contains",)"
    R"("value":"anna"}}},{"group":{"_0":{"children":[{"rule":{"_0":{"field":"isErased",)"
    R"("id":"R-2","op":"isTrue","value":""}}}],"id":"G-2","match":"none"}}}],"id":"G-1",)"
    R"("match":"all"}}})";

FilterNode sample() {
  const FilterNode erased{FilterCondition{"R-2", Field::isErased, Op::isTrue, ""}};
  return {FilterGroup{"G-1",
                      FilterMatch::all,
                      {{FilterCondition{"R-1", Field::from, Op::contains, "anna"}},
                       {FilterGroup{"G-2", FilterMatch::none, {erased}}}}}};
}

TEST(FilterNode, prunes) {
  const auto rule = [](const char* value) {
    return FilterNode::rule(Field::from, Op::contains, value);
  };
  const auto whole = FilterNode::group(
      FilterMatch::all, {rule(" \t"), FilterNode::group(FilterMatch::none, {rule("")}), rule("a"),
                         FilterNode::rule(Field::from, Op::isEmpty)});
  EXPECT_EQ(rendered(whole.pruned()), "all[from contains a; from isEmpty]");
  EXPECT_EQ(whole.pruned()->id(), whole.id());
  EXPECT_EQ(rendered(FilterNode::group(FilterMatch::any, {}).pruned()), "nothing");
  EXPECT_EQ(deepestFilter(500, 1).pruned()->depth(), kMaxFilterDepth);
}

TEST(FilterNode, describes) {
  EXPECT_EQ(sample().described(), "Sender address contains anna and not (Erased is true)");
  const auto either =
      FilterNode::group(FilterMatch::any, {FilterNode::rule(Field::subject, Op::isEmpty),
                                           FilterNode::rule(Field::tag, Op::isNot, "x")});
  EXPECT_EQ(either.described(), "Subject is empty or Tag is not x");
}

TEST(FilterJson, formAndBack) {
  EXPECT_EQ(toJson(sample()).dump(), kFilter);
  EXPECT_EQ(filterNodeFromJson(parseFilterDocument(kFilter, "f"), "f"), sample());
}

TEST(FilterJson, refusesWhatItDoesNotKnow) {
  static constexpr struct {
    const char *name, *from, *to;
  } kCases[] = {
      {"field", "\"from\"", "\"form\""},
      {"operator", "\"contains\"", "\"holds\""},
      {"match", "\"none\"", "\"some\""},
      {"noValue", ",\"value\":\"anna\"", ""},
      {"noPayload", "_0", "_1"},
      {"bothKinds", "{\"group\"", "{\"rule\":{},\"group\""},
      {"neitherKind", "\"rule\"", "\"rules\""},
      {"childrenThatAreNoList", "[", "{\"a\":"},
      {"loneSurrogate", "anna", "\\ud800"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    std::string text = kFilter;
    text.replace(text.find(c.from), std::string_view(c.from).size(), c.to);
    EXPECT_THROW(filterNodeFromJson(parseFilterDocument(text, "f"), "f"), JsonError);
  }
  for (const char* text : {"", "[]", "{}", "null", "7", "{\"rule\":7}"}) {
    SCOPED_TRACE(text);
    EXPECT_THROW(filterNodeFromJson(parseFilterDocument(text, "f"), "f"), JsonError);
  }
}

TEST(FilterJson, leavesOutWhatIsTooDeep) {
  const std::string text =
      repeated(R"({"group":{"_0":{"id":"g","match":"all","children":[)", 20'000) +
      R"({"rule":"not read"})" + repeated("]}}}", 20'000);
  const FilterNode node = filterNodeFromJson(parseFilterDocument(text, "f"), "f");
  EXPECT_EQ(node.depth(), kMaxFilterDepth);
  EXPECT_FALSE(node.pruned());
  EXPECT_EQ(toJson(node), toJson(filterNodeFromJson(toJson(node), "f")));
  EXPECT_THROW(parseFilterDocument(repeated("[", 100'000), "f"), JsonError);
}

TEST(FilterValue, dates) {
  static constexpr struct {
    const char* text;
    std::optional<double> seconds;
  } kCases[] = {
      {"2001-09-09", 999993600},   {"09.09.2001", 999993600},    {"9.9.2001", 999993600},
      {"2001/09/09", 999993600},   {"09/10/2001", 1000080000},   {"2001-09", 999302400},
      {"2001", 978307200},         {"2001-02-29", std::nullopt}, {"2001-09-09x", std::nullopt},
      {"yesterday", std::nullopt}, {"", std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    const auto date = FilterValue::date(c.text);
    EXPECT_EQ(date ? std::optional(date->seconds) : std::nullopt, c.seconds);
  }
}

TEST(FilterValue, sizes) {
  static constexpr struct {
    const char* text;
    std::optional<std::int64_t> bytes;
  } kCases[] = {
      {"1000", 1000},         {"2b", 2},
      {"1.5MB", 1572864},     {"1k", 1024},
      {".5g", 536870912},     {"+1kb", 1024},
      {"-1k", -1024},         {"1.9b", 1},
      {"1.5", std::nullopt},  {"kb", std::nullopt},
      {"", std::nullopt},     {"nank", std::nullopt},
      {"1 k", std::nullopt},  {"9e18k", std::nullopt},
      {"0x10", std::nullopt}, {"99999999999999999999", std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(FilterValue::size(c.text), c.bytes);
  }
}

TEST(SmartFolder, jsonFormAndBack) {
  const SmartFolder folder{"S-1", "Größe",      "gearshape.2", sample(), SearchSort::sizeDescending,
                           -2,    {1772360130}, {1772360131}};
  const std::string text = smartFolderJson(folder);
  EXPECT_EQ(text, std::string(R"({"createdAt":"2026-03-01T10:15:30Z","filter":)") + kFilter +
                      R"(,"icon":"gearshape.2","id":"S-1","name":"Größe","position":-2,)"
                      R"("sort":"sizeDescending","updatedAt":"2026-03-01T10:15:31Z"})");
  EXPECT_EQ(smartFolderFromJson(text), folder);
  for (const char* key : {"createdAt", "filter", "icon", "id", "name", "position", "sort"}) {
    SCOPED_TRACE(key);
    std::string without = text;
    without.replace(without.find(key), 2, "no");
    EXPECT_THROW(smartFolderFromJson(without), JsonError);
  }
  EXPECT_EQ(folder.query(50, 7).offset, 7);
  EXPECT_EQ(folder.query(50, 7).sort, SearchSort::sizeDescending);
}

TEST(SmartFolder, savable) {
  SmartFolder folder;
  folder.name = " \n";
  EXPECT_THROW(requireSavable(folder), SmartFolderError);
  folder.name = "a";
  EXPECT_THROW(requireSavable(folder), SmartFolderError);
  folder.filter = sample();
  EXPECT_NO_THROW(requireSavable(folder));
}

TEST(FilterFromQuery, saysWhatTheFieldsSay) {
  static constexpr struct {
    const char *line, *tree;
  } kCases[] = {
      {"rechnung mai", "anyText contains rechnung mai"},
      {"from:anna to:b",
       "all[any[from contains anna; fromName contains anna]; any[recipient contains b; cc contains "
       "b]]"},
      {"year:2023", "all[sentDate after 2023-01-01; sentDate before 2024-01-01]"},
      {"larger:1k smaller:10", "all[size greaterThan 1023; size lessThan 11]"},
      {"subject:s folder:f filename:n participant:p class:c sha:AB has:held has:attachment",
       "all[folder contains f; subject contains s; participant contains p; hasAttachment isTrue; "
       "attachmentName contains n; digest beginsWith ab; retentionClass isEqual c; onLegalHold "
       "isTrue]"},
      {"a or b", "any[anyText contains a; anyText contains b]"},
      {"is:erased", "nothing"},
      {"", "nothing"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(rendered(filterFromQuery(SearchQueryParser::parse(c.line))), c.tree);
  }
}

}  // namespace
}  // namespace ambervane
