#include "mailformats/portable_manifest.h"

#include "base/json.h"

namespace ambervane {
namespace {

/// The value of an optional key; one that is null counts as missing.
template <typename Value>
std::optional<Value> optionalValue(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || found->is_null()) return std::nullopt;
  return found->get<Value>();
}

PortableManifest decodeManifest(const nlohmann::json& document) {
  PortableManifest manifest;
  for (const nlohmann::json& message : document.at("messages")) {
    PortableManifest::Entry entry;
    message.at("file").get_to(entry.file);
    message.at("folder").get_to(entry.folder);
    entry.flags = optionalValue<std::vector<std::string>>(message, "flags");
    entry.internalDate = optionalValue<double>(message, "internalDate");
    manifest.messages.push_back(std::move(entry));
  }
  return manifest;
}

}  // namespace

std::optional<PortableManifest> PortableManifest::decode(BytesView json) {
  try {
    const nlohmann::json document = parseJson(json, kFileName);
    if (!document.is_object() || !document.contains("messages") ||
        !document.at("messages").is_array()) {
      return std::nullopt;
    }
    return decodeJson(document, kFileName, decodeManifest);
  } catch (const JsonError&) {
    return std::nullopt;
  }
}

}  // namespace ambervane
