#include "store/tag_rule.h"

#include "base/calendar.h"
#include "base/json.h"
#include "query/filter_json.h"

namespace ambervane {
namespace {

using nlohmann::json;

constexpr const char* kDocument = "The tag rule";

Date decodeDate(const json& value) {
  const auto date = parseIso8601(value.get_ref<const std::string&>());
  if (!date) throw JsonError(kDocument, "a date cannot be read");
  return *date;
}

}  // namespace

std::string tagRuleJson(const TagRule& rule) {
  json value = {{"id", rule.id},
                {"name", rule.name},
                {"tag", rule.tag},
                {"colour", rule.colour},
                {"enabled", rule.enabled},
                {"position", rule.position},
                {"createdAt", iso8601(rule.createdAt)},
                {"updatedAt", iso8601(rule.updatedAt)}};
  value["filter"] = toJson(rule.filter);
  return compactJson(value);
}

TagRule tagRuleFromJson(std::string_view text) {
  return decodeJson(parseFilterDocument(text, kDocument), kDocument, [](const json& value) {
    TagRule rule;
    rule.id = value.at("id").get<std::string>();
    rule.name = value.at("name").get<std::string>();
    rule.filter = filterNodeFromJson(value.at("filter"), kDocument);
    rule.tag = value.at("tag").get<std::string>();
    rule.colour = value.value("colour", rule.colour);
    rule.enabled = value.value("enabled", rule.enabled);
    rule.position = value.value("position", rule.position);
    rule.createdAt = decodeDate(value.at("createdAt"));
    rule.updatedAt = decodeDate(value.at("updatedAt"));
    return rule;
  });
}

}  // namespace ambervane
