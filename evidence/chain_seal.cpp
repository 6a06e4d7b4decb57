#include "evidence/chain_seal.h"

#include <fmt/format.h>

#include <cmath>

#include "base/calendar.h"
#include "base/json.h"

namespace ambervane {
namespace {

using nlohmann::json;

/// The value of `key`, or null where there is none.
const json& field(const json& object, const char* key) {
  static const json kNull;
  const auto found = object.find(key);
  return found == object.end() ? kNull : *found;
}

std::optional<std::string> text(const json& object, const char* key) {
  const json& value = field(object, key);
  if (!value.is_string()) return std::nullopt;
  return value.get<std::string>();
}

std::optional<std::int64_t> integer(const json& object, const char* key) {
  const json& value = field(object, key);
  if (!value.is_number_integer()) return std::nullopt;
  const auto number = value.get<std::int64_t>();
  // An unsigned value too large for the type comes out negative.
  if (value.is_number_unsigned() && number < 0) return std::nullopt;
  return number;
}

std::optional<Date> date(const json& object, const char* key) {
  const auto written = text(object, key);
  return written ? parseIso8601(*written) : std::nullopt;
}

/// Takes an optional key over; false when it is there with another type.
template <typename T>
bool take(std::optional<T>& into, std::optional<T> read, const json& object, const char* key) {
  into = std::move(read);
  return into.has_value() || field(object, key).is_null();
}

}  // namespace

std::string ChainSeal::signedPayload() const {
  return fmt::format("seal={}\nts={:.0f}\nhead={}\nentries={}\nmessages={}\nalg={}", sealNumber,
                     std::floor(createdAt.seconds), chainHead, entryCount, messageCount, algorithm);
}

std::string encodeChainSeal(const ChainSeal& seal) {
  json object = {{"sealNumber", seal.sealNumber},     {"createdAt", iso8601(seal.createdAt)},
                 {"chainHead", seal.chainHead},       {"entryCount", seal.entryCount},
                 {"messageCount", seal.messageCount}, {"publicKey", seal.publicKey},
                 {"signature", seal.signature},       {"algorithm", seal.algorithm}};
  if (seal.timestampToken) object["timestampToken"] = *seal.timestampToken;
  if (seal.timestampAuthority) object["timestampAuthority"] = *seal.timestampAuthority;
  if (seal.timestampedAt) object["timestampedAt"] = iso8601(*seal.timestampedAt);
  if (seal.timestampFailure) object["timestampFailure"] = *seal.timestampFailure;
  return prettyJson(object);
}

std::optional<ChainSeal> decodeChainSeal(std::string_view bytes) {
  const json object = tryParseJson(bytes);
  if (!object.is_object()) return std::nullopt;
  const auto sealNumber = integer(object, "sealNumber");
  const auto createdAt = date(object, "createdAt");
  const auto chainHead = text(object, "chainHead");
  const auto entryCount = integer(object, "entryCount");
  const auto messageCount = integer(object, "messageCount");
  const auto publicKey = text(object, "publicKey");
  const auto signature = text(object, "signature");
  const auto algorithm = text(object, "algorithm");
  if (!sealNumber || !createdAt || !chainHead || !entryCount || !messageCount || !publicKey ||
      !signature || !algorithm) {
    return std::nullopt;
  }
  ChainSeal seal{.sealNumber = *sealNumber,
                 .createdAt = *createdAt,
                 .chainHead = *chainHead,
                 .entryCount = *entryCount,
                 .messageCount = *messageCount,
                 .publicKey = *publicKey,
                 .signature = *signature,
                 .algorithm = *algorithm,
                 .timestampToken = {},
                 .timestampAuthority = {},
                 .timestampedAt = {},
                 .timestampFailure = {}};
  const auto takeText = [&](std::optional<std::string>& into, const char* key) {
    return take(into, text(object, key), object, key);
  };
  if (!takeText(seal.timestampToken, "timestampToken") ||
      !takeText(seal.timestampAuthority, "timestampAuthority") ||
      !take(seal.timestampedAt, date(object, "timestampedAt"), object, "timestampedAt") ||
      !takeText(seal.timestampFailure, "timestampFailure")) {
    return std::nullopt;
  }
  return seal;
}

}  // namespace ambervane
