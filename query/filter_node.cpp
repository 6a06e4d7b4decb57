#include "query/filter_node.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/digest.h"
#include "base/text.h"

namespace ambervane {
namespace {

// In the order of the enumeration.
constexpr std::array<std::string_view, 3> kMatchNames = {"all", "any", "none"};

/// The children of a group at `level`, the root being at 1; none where they would lie too deep.
const std::vector<FilterNode>& childrenAt(const FilterGroup& group, int level) noexcept {
  static const std::vector<FilterNode> kNone;
  return level < kMaxFilterDepth ? group.children : kNone;
}

int depthFrom(const FilterNode& node, int level) noexcept {
  int deepest = level;
  if (const FilterGroup* group = node.asGroup()) {
    for (const FilterNode& child : childrenAt(*group, level)) {
      deepest = std::max(deepest, depthFrom(child, level + 1));
    }
  }
  return deepest;
}

void describe(const FilterNode& node, int level, std::string& out) {
  if (const FilterCondition* rule = node.asRule()) {
    out += facts(rule->field).label;
    out += ' ';
    out += facts(rule->op).label;
    if (facts(rule->op).needsValue) out += ' ' + rule->value;
    return;
  }
  const FilterGroup& group = *node.asGroup();
  const std::string_view separator = group.match == FilterMatch::all ? " and " : " or ";
  if (group.match == FilterMatch::none) out += "not (";
  bool first = true;
  for (const FilterNode& child : childrenAt(group, level)) {
    if (!std::exchange(first, false)) out += separator;
    describe(child, level + 1, out);
  }
  if (group.match == FilterMatch::none) out += ')';
}

std::optional<FilterNode> prune(const FilterNode& node, int level) {
  if (const FilterCondition* rule = node.asRule()) {
    if (rule->isIncomplete()) return std::nullopt;
    return node;
  }
  const FilterGroup& group = *node.asGroup();
  FilterGroup kept{group.id, group.match, {}};
  for (const FilterNode& child : childrenAt(group, level)) {
    if (auto left = prune(child, level + 1)) kept.children.push_back(std::move(*left));
  }
  if (kept.children.empty()) return std::nullopt;
  return FilterNode{std::move(kept)};
}

}  // namespace

bool FilterCondition::isIncomplete() const noexcept {
  return facts(op).needsValue && trim(value).empty();
}

std::string_view filterMatchName(FilterMatch match) noexcept {
  return kMatchNames[static_cast<std::size_t>(match)];
}

std::optional<FilterMatch> filterMatchFromName(std::string_view name) noexcept {
  const auto* const found = std::find(kMatchNames.begin(), kMatchNames.end(), name);
  if (found == kMatchNames.end()) return std::nullopt;
  return static_cast<FilterMatch>(found - kMatchNames.begin());
}

FilterNode FilterNode::rule(FilterField field, FilterOperator op, std::string value) {
  return {FilterCondition{randomUuid(), field, op, std::move(value)}};
}

FilterNode FilterNode::group(FilterMatch match, std::vector<FilterNode> children) {
  return {FilterGroup{randomUuid(), match, std::move(children)}};
}

const std::string& FilterNode::id() const noexcept {
  const FilterGroup* const group = asGroup();
  return group != nullptr ? group->id : asRule()->id;
}

int FilterNode::depth() const noexcept { return depthFrom(*this, 1); }

std::string FilterNode::described() const {
  std::string out;
  describe(*this, 1, out);
  return out;
}

std::optional<FilterNode> FilterNode::pruned() const { return prune(*this, 1); }

bool operator==(const FilterGroup& a, const FilterGroup& b) {
  return a.id == b.id && a.match == b.match && a.children == b.children;
}

bool operator==(const FilterNode& a, const FilterNode& b) { return a.content == b.content; }

}  // namespace ambervane
