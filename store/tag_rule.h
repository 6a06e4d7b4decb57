#ifndef AMBERVANE_STORE_TAG_RULE_H_
#define AMBERVANE_STORE_TAG_RULE_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "base/date.h"
#include "query/filter_node.h"

namespace ambervane {

/// Tags every message that comes in and matches a filter.
struct TagRule {
  std::string id;  ///< a UUID
  std::string name;
  FilterNode filter;
  std::string tag;
  std::string colour = "grey";
  bool enabled = true;
  std::int64_t position = 0;  ///< rules run in ascending order
  Date createdAt{};
  Date updatedAt{};
  friend bool operator==(const TagRule&, const TagRule&) = default;
};

/// On one line with sorted keys, which are the field names; dates in ISO 8601, whole seconds.
std::string tagRuleJson(const TagRule& rule);
/// Reads what `tagRuleJson` makes; colour, enabled and position may be missing. Throws JsonError
/// for anything else.
TagRule tagRuleFromJson(std::string_view text);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_TAG_RULE_H_
