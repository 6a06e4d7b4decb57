#ifndef AMBERVANE_QUERY_FILTER_NODE_H_
#define AMBERVANE_QUERY_FILTER_NODE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "query/filter_field.h"

namespace ambervane {

/// Levels of a filter tree, a single condition being one. Whatever reads, prunes, describes or
/// compiles a tree leaves out what lies deeper, and so neither recurses without bound nor emits an
/// expression that SQLite refuses as too deep.
inline constexpr int kMaxFilterDepth = 200;

/// One question about a message. The value is kept as typed; `FilterCompiler` reads it.
struct FilterCondition {
  std::string id;  ///< a UUID
  FilterField field = FilterField::anyText;
  FilterOperator op = FilterOperator::contains;
  std::string value;

  /// Whether the operator needs a value and there is none but blanks.
  bool isIncomplete() const noexcept;
  friend bool operator==(const FilterCondition&, const FilterCondition&) = default;
};

/// How the children of a group are joined: all hold, at least one holds, not one holds.
enum class FilterMatch : std::uint8_t { all, any, none };
std::string_view filterMatchName(FilterMatch match) noexcept;  ///< as stored
std::optional<FilterMatch> filterMatchFromName(std::string_view name) noexcept;

struct FilterNode;

struct FilterGroup {
  std::string id;  ///< a UUID
  FilterMatch match = FilterMatch::all;
  std::vector<FilterNode> children;
};

/// A tree of conditions: what the boolean query language reads into and a smart folder stores.
struct FilterNode {
  using Match = FilterMatch;
  using Group = FilterGroup;
  std::variant<FilterGroup, FilterCondition> content;

  /// A condition or a group with a fresh identifier.
  static FilterNode rule(FilterField field, FilterOperator op, std::string value = {});
  static FilterNode group(FilterMatch match, std::vector<FilterNode> children);

  const FilterCondition* asRule() const noexcept { return std::get_if<FilterCondition>(&content); }
  const FilterGroup* asGroup() const noexcept { return std::get_if<FilterGroup>(&content); }
  const std::string& id() const noexcept;
  /// Levels, 1 for a condition or an empty group; at most `kMaxFilterDepth`.
  int depth() const noexcept;
  /// The tree in one sentence for people: "Subject contains invoice and not (From is a@b.ch)".
  std::string described() const;
  /// Without incomplete conditions and the groups they leave empty; absent when nothing is left.
  std::optional<FilterNode> pruned() const;
};
/// Compare identifiers too.
bool operator==(const FilterGroup& a, const FilterGroup& b);
bool operator==(const FilterNode& a, const FilterNode& b);

}  // namespace ambervane

#endif  // AMBERVANE_QUERY_FILTER_NODE_H_
