#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <variant>

#include "base/json.h"
#include "query/filter_json.h"
#include "query/query_builder.h"
#include "query/search_query_parser.h"
#include "store/catalog.h"

using namespace ambervane;

namespace {

SQLBindings bindings(const QueryValues& values) {
  SQLBindings out;
  for (const QueryValue& value : values) {
    std::visit([&out](const auto& any) { out.emplace_back(any); }, value);
  }
  return out;
}

}  // namespace

// No line is an error: not to the parsers, and not to SQLite, with full text or without. What is
// read as a tree can be stored and read back.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Catalog catalog(":memory:", [] { return Date{}; });
  SearchQuery query = SearchQueryParser::parse({reinterpret_cast<const char*>(data), size});
  query.sort = SearchSort::relevance;
  for (const bool supportsFTS : {true, false}) {
    const BuiltQuery built = buildQuery(query, {supportsFTS, true, true, Date{1e9}});
    catalog.database().query(built.hitsSql(), bindings(built.hitsParams()));
    catalog.database().query(built.countSql(), bindings(built.params));
  }
  if (const auto filter = filterFromQuery(query)) {
    const std::string text =
        toJson(*filter).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    const FilterNode again = filterNodeFromJson(parseFilterDocument(text, "filter"), "filter");
    if (again.described().empty() || again.depth() != filter->depth()) std::abort();
  }
  return 0;
}
