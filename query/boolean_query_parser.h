#ifndef AMBERVANE_QUERY_BOOLEAN_QUERY_PARSER_H_
#define AMBERVANE_QUERY_BOOLEAN_QUERY_PARSER_H_

#include <optional>
#include <string_view>

#include "query/filter_node.h"

/// The part of the query language that knows brackets, OR and NOT. `SearchQueryParser::parse` is
/// the way in.
namespace ambervane::BooleanQueryParser {

/// Whether a line says more than the fields of a SearchQuery can hold.
bool needsTree(std::string_view line);

/// The line as a tree, pruned; absent when it holds no condition. Never fails: a missing bracket is
/// forgiven, and what stands behind a surplus one is not read. Linear in the line; brackets may be
/// nested without bound, but levels of the tree beyond `kMaxFilterDepth` are left out.
std::optional<FilterNode> parse(std::string_view line);

}  // namespace ambervane::BooleanQueryParser

#endif  // AMBERVANE_QUERY_BOOLEAN_QUERY_PARSER_H_
