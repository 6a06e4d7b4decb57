#include "syncengine/sync_settings.h"

#include "base/calendar.h"
#include "base/json.h"
#include "store/catalog_sync_state.h"

namespace ambervane {
namespace {

constexpr const char* kName = "the settings of an account";
constexpr double kTimeoutSeconds = 60;

nlohmann::json encoded(const std::optional<Date>& date) {
  if (!date) return nullptr;
  return iso8601(*date);
}

std::optional<Date> decoded(const nlohmann::json& json, const char* key) {
  const auto value = json.find(key);
  if (value == json.end() || value->is_null()) return std::nullopt;
  return parseIso8601(value->get<std::string>());
}

}  // namespace

SyncSettings::SyncSettings(const IMAPServer& server, const std::string& user,
                           const SyncScope& scope)
    : host(server.host),
      port(server.port),
      useTLS(server.useTLS),
      username(user),
      includeFolders(scope.includeFolders),
      excludeFolders(scope.excludeFolders),
      exactFolders(scope.exactFolders),
      sinceEnabled(scope.since.has_value()),
      since(scope.since),
      beforeEnabled(scope.before.has_value()),
      before(scope.before) {}

IMAPServer SyncSettings::server() const {
  return {.host = host, .port = port, .useTLS = useTLS, .timeout = kTimeoutSeconds};
}

SyncScope SyncSettings::scope() const {
  SyncScope scope;
  scope.includeFolders = includeFolders;
  scope.excludeFolders = excludeFolders;
  scope.exactFolders = exactFolders;
  if (sinceEnabled) scope.since = since;
  if (beforeEnabled) scope.before = before;
  return scope;
}

std::string SyncSettings::encode() const {
  return compactJson({{"host", host},
                      {"port", port},
                      {"useTLS", useTLS},
                      {"username", username},
                      {"includeFolders", includeFolders},
                      {"excludeFolders", excludeFolders},
                      {"exactFolders", exactFolders},
                      {"sinceEnabled", sinceEnabled},
                      {"since", encoded(since)},
                      {"beforeEnabled", beforeEnabled},
                      {"before", encoded(before)}});
}

std::optional<SyncSettings> SyncSettings::decode(const std::string& text) {
  try {
    return decodeJson(parseJson(text, kName), kName, [](const nlohmann::json& json) {
      SyncSettings settings;
      json.at("host").get_to(settings.host);
      json.at("port").get_to(settings.port);
      json.at("useTLS").get_to(settings.useTLS);
      json.at("username").get_to(settings.username);
      json.at("includeFolders").get_to(settings.includeFolders);
      json.at("excludeFolders").get_to(settings.excludeFolders);
      json.at("exactFolders").get_to(settings.exactFolders);
      json.at("sinceEnabled").get_to(settings.sinceEnabled);
      settings.since = decoded(json, "since");
      json.at("beforeEnabled").get_to(settings.beforeEnabled);
      settings.before = decoded(json, "before");
      return settings;
    });
  } catch (const JsonError&) {
    return std::nullopt;
  }
}

void SyncSettings::save(MailArchive& archive, const std::string& accountName) const {
  const auto account = archive.catalog().account(accountName);
  if (account) CatalogSyncState(archive.catalog()).setSettings(account->id, encode());
}

std::optional<SyncSettings> SyncSettings::load(MailArchive& archive,
                                               const std::string& accountName) {
  const auto account = archive.catalog().account(accountName);
  if (!account || !account->settings) return std::nullopt;
  return decode(*account->settings);
}

}  // namespace ambervane
