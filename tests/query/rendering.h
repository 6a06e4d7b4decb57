#ifndef AMBERVANE_TESTS_QUERY_RENDERING_H_
#define AMBERVANE_TESTS_QUERY_RENDERING_H_

#include <optional>
#include <string>

#include "base/text.h"
#include "query/filter_node.h"
#include "query/query_value.h"

namespace ambervane {

/// A tree without its identifiers: "all[from contains anna; none[isErased isTrue]]".
inline std::string rendered(const FilterNode& node) {
  if (const FilterCondition* rule = node.asRule()) {
    std::string out(facts(rule->field).name);
    out += ' ';
    out += facts(rule->op).name;
    return rule->value.empty() ? out : out + ' ' + rule->value;
  }
  std::string out;
  for (const FilterNode& child : node.asGroup()->children) {
    out += (out.empty() ? "" : "; ") + rendered(child);
  }
  return std::string(filterMatchName(node.asGroup()->match)) + "[" + out + "]";
}
inline std::string rendered(const std::optional<FilterNode>& node) {
  return node ? rendered(*node) : "nothing";
}

/// Parameters as "5|0.5s|text"; an "s" marks seconds.
inline std::string rendered(const QueryValues& params) {
  struct Text {
    std::string operator()(std::int64_t value) const { return std::to_string(value); }
    std::string operator()(double value) const { return decimalNumber(value) + "s"; }
    std::string operator()(const std::string& value) const { return value; }
  };
  std::string out;
  for (const QueryValue& value : params) {
    out += (out.empty() ? "" : "|") + std::visit(Text{}, value);
  }
  return out;
}

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_QUERY_RENDERING_H_
