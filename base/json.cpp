#include "base/json.h"

namespace ambervane {

std::string jsonErrorDetail(const nlohmann::json::exception& error) {
  const std::string text = error.what();
  const std::size_t end = text.find("] ");
  return end == std::string::npos ? text : text.substr(end + 2);
}

nlohmann::json parseJson(std::string_view text, const std::string& file) {
  const auto boundDepth = [&file](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
    if (depth > kMaxJsonDepth) throw JsonError(file, "it is nested too deeply");
    return true;
  };
  try {
    return nlohmann::json::parse(text, boundDepth);
  } catch (const nlohmann::json::exception& error) {
    throw JsonError(file, jsonErrorDetail(error));
  }
}

std::string prettyJson(const nlohmann::json& value) {
  return value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace ambervane
