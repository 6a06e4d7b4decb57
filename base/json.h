#ifndef AMBERVANE_BASE_JSON_H_
#define AMBERVANE_BASE_JSON_H_

// For .cpp files only: it brings nlohmann-json in.

#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "base/localized_message.h"

namespace ambervane {

/// A JSON document that cannot be read or lacks what it must have.
class JsonError final : public TranslatableError {
 public:
  JsonError(std::string file, std::string detail)
      : file_(std::move(file)), detail_(std::move(detail)) {}
  LocalizedMessage message() const override { return {"%@ is damaged: %@", {file_, detail_}}; }

 private:
  std::string file_;
  std::string detail_;
};

/// Values deeper than this are refused: writing or destroying them would recurse.
inline constexpr int kMaxJsonDepth = 64;
inline constexpr int kAnyJsonDepth = std::numeric_limits<int>::max();

// The parser and the writer are much code, so they are compiled in json.cpp alone.

/// Parses `text`, nested at most `maxDepth` deep; `file` names it in a JsonError.
nlohmann::json parseJson(std::string_view text, const std::string& file,
                         int maxDepth = kMaxJsonDepth);
/// Parses `text`; what is no JSON gives a value for which `is_discarded()` holds.
nlohmann::json tryParseJson(std::string_view text);
/// Hands the values of `text` to `reader` as they come; false when it is no JSON or `reader`
/// refuses a value.
bool readJsonEvents(std::string_view text, nlohmann::json_sax<nlohmann::json>& reader);
/// Runs `decode` over `value`, turning the library's errors (wrong types, missing keys) into a
/// JsonError that names `file`.
template <typename Decode>
auto decodeJson(const nlohmann::json& value, const std::string& file, Decode decode);

/// On one line, with sorted keys; bytes that are not UTF-8 are replaced.
std::string compactJson(const nlohmann::json& value);
/// Pretty-printed with sorted keys and two blanks of indent, ending in a line feed.
std::string prettyJson(const nlohmann::json& value);

/// The library's message without its "[json.exception...]" prefix.
std::string jsonErrorDetail(const nlohmann::json::exception& error);

template <typename Decode>
auto decodeJson(const nlohmann::json& value, const std::string& file, Decode decode) {
  try {
    return decode(value);
  } catch (const nlohmann::json::exception& error) {
    throw JsonError(file, jsonErrorDetail(error));
  }
}

}  // namespace ambervane

#endif  // AMBERVANE_BASE_JSON_H_
