#include "base/json.h"

namespace ambervane {

std::string jsonErrorDetail(const nlohmann::json::exception& error) {
  const std::string text = error.what();
  const std::size_t end = text.find("] ");
  return end == std::string::npos ? text : text.substr(end + 2);
}

nlohmann::json parseJson(std::string_view text, const std::string& file, int maxDepth) {
  const auto boundDepth = [&](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
    if (depth > maxDepth) throw JsonError(file, "it is nested too deeply");
    return true;
  };
  try {
    return nlohmann::json::parse(text, boundDepth);
  } catch (const nlohmann::json::exception& error) {
    throw JsonError(file, jsonErrorDetail(error));
  }
}

nlohmann::json tryParseJson(std::string_view text) {
  return nlohmann::json::parse(text, nullptr, false);
}

bool readJsonEvents(std::string_view text, nlohmann::json_sax<nlohmann::json>& reader) {
  return nlohmann::json::sax_parse(text, &reader);
}

std::string compactJson(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string prettyJson(const nlohmann::json& value) {
  return value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace ambervane
