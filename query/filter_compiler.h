#ifndef AMBERVANE_QUERY_FILTER_COMPILER_H_
#define AMBERVANE_QUERY_FILTER_COMPILER_H_

#include <optional>
#include <string>

#include "query/filter_node.h"
#include "query/query_value.h"

namespace ambervane {

/// A condition on the row "m" of the table message, and what its "?" stand for, in order.
struct CompiledFilter {
  std::string sql;
  QueryValues params;
  friend bool operator==(const CompiledFilter&, const CompiledFilter&) = default;
};

/// Turns a filter tree into one SQL condition. User text only ever becomes a parameter.
///
/// A condition that cannot be compiled (a value that cannot be read, an operator its field does not
/// have) drops out, and so does a group with nothing left.
///
/// What is emitted stays within SQLite's limits, whatever the tree:
///  - a tree of more than `kMaxFilterConditions` conditions, which have at most three parameters
///    each, finds nothing, rather than something else than was asked (SQLite takes 32766);
///  - the expression is less than 950 levels deep (SQLite takes 1000). Levels beyond
///    `kMaxFilterDepth` drop out, and a group whose plain chain "a AND b AND c" would be too deep,
///    each operand being a level, is joined in nested brackets instead, which means the same;
///  - a pattern for LIKE longer than `kMaxLikePatternBytes` (SQLite takes 50000) finds nothing.
namespace FilterCompiler {

inline constexpr int kMaxFilterConditions = 5000;

/// The condition, its parameters being appended to `params`; absent when nothing is left.
std::optional<std::string> emit(const FilterNode& node, QueryValues& params,
                                const QueryContext& context);
std::optional<CompiledFilter> compile(const FilterNode& node, const QueryContext& context);

}  // namespace FilterCompiler

}  // namespace ambervane

#endif  // AMBERVANE_QUERY_FILTER_COMPILER_H_
