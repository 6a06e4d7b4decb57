#ifndef AMBERVANE_QUERY_FILTER_JSON_H_
#define AMBERVANE_QUERY_FILTER_JSON_H_

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "query/filter_node.h"

namespace ambervane {

/// A tree as smart folders and tag rules store it: {"group": {"_0": {"id", "match", "children"}}}
/// or {"rule": {"_0": {"id", "field", "op", "value"}}}. Levels beyond `kMaxFilterDepth` are left
/// out.
nlohmann::json toJson(const FilterNode& node);

/// Reads what `toJson` makes; levels beyond `kMaxFilterDepth` are left out unread. Throws JsonError
/// for anything else, an unknown field or operator included: a filter half understood would show
/// the wrong messages. `document` names it in the error.
FilterNode filterNodeFromJson(const nlohmann::json& value, const std::string& document);

/// Parses a JSON text that holds a filter tree, which may be nested deeper than `parseJson` takes.
/// The value must not be copied, compared or written before the tree is taken out of it: those
/// recurse as deep as the text is nested. Throws JsonError.
nlohmann::json parseFilterDocument(std::string_view text, const std::string& document);

}  // namespace ambervane

#endif  // AMBERVANE_QUERY_FILTER_JSON_H_
