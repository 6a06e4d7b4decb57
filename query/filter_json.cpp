#include "query/filter_json.h"

#include <utility>

#include "base/json.h"

namespace ambervane {
namespace {

using nlohmann::json;

json encode(const FilterNode& node, int level) {
  json body;
  if (const FilterCondition* rule = node.asRule()) {
    body = {{"id", rule->id},
            {"field", facts(rule->field).name},
            {"op", facts(rule->op).name},
            {"value", rule->value}};
    return {{"rule", {{"_0", std::move(body)}}}};
  }
  const FilterGroup& group = *node.asGroup();
  json children = json::array();
  if (level < kMaxFilterDepth) {
    for (const FilterNode& child : group.children) children.push_back(encode(child, level + 1));
  }
  body = {{"id", group.id}, {"match", filterMatchName(group.match)}};
  body["children"] = std::move(children);
  json node_ = json::object();
  node_["group"]["_0"] = std::move(body);
  return node_;
}

class Decoder {
 public:
  explicit Decoder(const std::string& document) : document_(document) {}

  FilterNode node(const json& value, int level) const {
    const auto& object = value.get_ref<const json::object_t&>();
    const auto group = object.find("group");
    const auto rule = object.find("rule");
    if ((group == object.end()) == (rule == object.end())) {
      throw JsonError(document_, "a filter node is either a group or a rule");
    }
    if (rule != object.end()) return {condition(rule->second.at("_0"))};
    const json& body = group->second.at("_0");
    FilterGroup read{body.at("id").get<std::string>(),
                     known(filterMatchFromName(text(body, "match")), body, "match"),
                     {}};
    const auto& children = body.at("children").get_ref<const json::array_t&>();
    if (level < kMaxFilterDepth) {
      for (const json& child : children) read.children.push_back(node(child, level + 1));
    }
    return {std::move(read)};
  }

 private:
  FilterCondition condition(const json& body) const {
    return {body.at("id").get<std::string>(),
            known(filterFieldFromName(text(body, "field")), body, "field"),
            known(filterOperatorFromName(text(body, "op")), body, "op"),
            body.at("value").get<std::string>()};
  }

  static const std::string& text(const json& body, const char* key) {
    return body.at(key).get_ref<const std::string&>();
  }

  template <typename T>
  T known(std::optional<T> value, const json& body, const char* key) const {
    if (!value) {
      throw JsonError(document_,
                      std::string("a filter has no ") + key + " \"" + text(body, key) + "\"");
    }
    return *value;
  }

  const std::string& document_;
};

}  // namespace

json toJson(const FilterNode& node) { return encode(node, 1); }

FilterNode filterNodeFromJson(const json& value, const std::string& document) {
  return decodeJson(value, document,
                    [&](const json& object) { return Decoder(document).node(object, 1); });
}

json parseFilterDocument(std::string_view text, const std::string& document) {
  // The library parses and destroys nested values in loops.
  return parseJson(text, document, kAnyJsonDepth);
}

}  // namespace ambervane
