#include "query/smart_folder.h"

#include "base/calendar.h"
#include "base/json.h"
#include "base/text.h"
#include "query/filter_json.h"

namespace ambervane {
namespace {

using nlohmann::json;

constexpr const char* kDocument = "The smart folder";

[[noreturn]] void refuse(const std::string& detail) { throw JsonError(kDocument, detail); }

Date decodeDate(const json& value) {
  const auto date = parseIso8601(value.get_ref<const std::string&>());
  if (!date) refuse("a date cannot be read");
  return *date;
}

SearchSort decodeSort(const json& value) {
  const auto& name = value.get_ref<const std::string&>();
  const auto sort = searchSortFromName(name);
  if (!sort) refuse("there is no order called \"" + name + "\"");
  return *sort;
}

}  // namespace

SearchQuery SmartFolder::query(std::int64_t limit, std::int64_t offset) const {
  SearchQuery query;
  query.filter = filter;
  query.sort = sort;
  query.limit = limit;
  query.offset = offset;
  return query;
}

std::string smartFolderJson(const SmartFolder& folder) {
  json value = {{"id", folder.id},
                {"name", folder.name},
                {"icon", folder.icon},
                {"sort", facts(folder.sort).name},
                {"position", folder.position},
                {"createdAt", iso8601(folder.createdAt)},
                {"updatedAt", iso8601(folder.updatedAt)}};
  value["filter"] = toJson(folder.filter);
  return compactJson(value);
}

SmartFolder smartFolderFromJson(std::string_view text) {
  return decodeJson(parseFilterDocument(text, kDocument), kDocument, [](const json& value) {
    const auto& position = value.at("position").get_ref<const json::number_integer_t&>();
    return SmartFolder{
        value.at("id").get<std::string>(),   value.at("name").get<std::string>(),
        value.at("icon").get<std::string>(), filterNodeFromJson(value.at("filter"), kDocument),
        decodeSort(value.at("sort")),        position,
        decodeDate(value.at("createdAt")),   decodeDate(value.at("updatedAt"))};
  });
}

LocalizedMessage SmartFolderError::message() const {
  switch (reason_) {
    case Reason::nameRequired:
      return {"A smart folder needs a name.", {}};
    case Reason::noUsableRules:
      return {"This smart folder has no complete rules yet, so it would match nothing.", {}};
  }
  return {};
}

void requireSavable(const SmartFolder& folder) {
  if (trim(folder.name).empty()) throw SmartFolderError(SmartFolderError::Reason::nameRequired);
  if (!folder.filter.pruned()) throw SmartFolderError(SmartFolderError::Reason::noUsableRules);
}

}  // namespace ambervane
