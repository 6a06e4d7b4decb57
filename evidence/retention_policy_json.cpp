#include "evidence/retention_policy_json.h"

#include <limits>
#include <string>

#include "base/json.h"

namespace ambervane {
namespace {

using nlohmann::json;

constexpr const char* kDocument = "The retention policy";

[[noreturn]] void refuse(const std::string& detail) { throw JsonError(kDocument, detail); }

int integer(const json& value, const char* key) {
  // The library would cut a fraction off and wrap a number that is too large.
  const auto& number = value.get_ref<const json::number_integer_t&>();
  const bool wrapped = value.is_number_unsigned() && number < 0;
  if (wrapped || number < std::numeric_limits<int>::min() ||
      number > std::numeric_limits<int>::max()) {
    refuse(std::string("the number in \"") + key + "\" is out of range");
  }
  return static_cast<int>(number);
}

json encode(const RetentionClass& c) {
  return {{"identifier", c.identifier},
          {"label", c.label},
          {"years", c.years},
          {"fromEndOfBusinessYear", c.fromEndOfBusinessYear}};
}

RetentionClass decodeClass(const json& value) {
  return {value.at("identifier").get<std::string>(), value.at("label").get<std::string>(),
          integer(value.at("years"), "years"), value.at("fromEndOfBusinessYear").get<bool>()};
}

json encode(const RetentionRule& rule) {
  return {{"id", rule.id},
          {"name", rule.name},
          {"classIdentifier", rule.classIdentifier},
          {"enabled", rule.enabled},
          {"participants", rule.participants},
          {"folders", rule.folders},
          {"subjectContains", rule.subjectContains},
          {"requiresAttachment", rule.requiresAttachment}};
}

RetentionRule decodeRule(const json& value) {
  using Texts = std::vector<std::string>;
  return {value.at("id").get<std::string>(),
          value.at("name").get<std::string>(),
          value.at("classIdentifier").get<std::string>(),
          value.at("enabled").get<bool>(),
          value.at("participants").get<Texts>(),
          value.at("folders").get<Texts>(),
          value.at("subjectContains").get<Texts>(),
          value.at("requiresAttachment").get<bool>()};
}

template <typename T>
json encodeList(const std::vector<T>& values) {
  json list = json::array();
  for (const T& value : values) list.push_back(encode(value));
  return list;
}

/// Only a list: the library would also iterate over the values of an object.
template <typename T>
std::vector<T> decodeList(const json& value, T (*decode)(const json&)) {
  std::vector<T> values;
  for (const json& item : value.get_ref<const json::array_t&>()) values.push_back(decode(item));
  return values;
}

std::set<ComplianceRegime> decodeRegimes(const json& value) {
  std::set<ComplianceRegime> regimes;
  for (const json& item : value.get_ref<const json::array_t&>()) {
    const auto& identifier = item.get_ref<const std::string&>();
    const auto regime = regimeFromIdentifier(identifier);
    if (!regime) refuse("there is no regime called \"" + identifier + "\"");
    regimes.insert(*regime);
  }
  return regimes;
}

DisposalPolicy decodeDisposal(const json& value) {
  const auto& identifier = value.get_ref<const std::string&>();
  const auto disposal = disposalPolicyFromIdentifier(identifier);
  if (!disposal) refuse("there is no disposal setting called \"" + identifier + "\"");
  return *disposal;
}

RetentionPolicy decodePolicy(const json& value) {
  const auto& object = value.get_ref<const json::object_t&>();
  const auto present = [&](const char* key, auto take) {
    const auto found = object.find(key);
    if (found != object.end() && !found->second.is_null()) take(found->second);
  };
  RetentionPolicy policy;
  // First, because what else is missing follows from the regimes.
  present("regimes", [&](const json& v) { policy = RetentionPolicy(decodeRegimes(v)); });
  present("defaultClass", [&](const json& v) { policy.defaultClass = decodeClass(v); });
  present("classes", [&](const json& v) { policy.classes = decodeList(v, decodeClass); });
  present("cryptoShreddingEnabled",
          [&](const json& v) { policy.cryptoShreddingEnabled = v.get<bool>(); });
  present("indexAttachmentText",
          [&](const json& v) { policy.indexAttachmentText = v.get<bool>(); });
  present("wormEnforcement", [&](const json& v) { policy.wormEnforcement = v.get<bool>(); });
  present("sealEveryEntries",
          [&](const json& v) { policy.sealEveryEntries = integer(v, "sealEveryEntries"); });
  present("disposalPolicy", [&](const json& v) { policy.disposalPolicy = decodeDisposal(v); });
  present("rules", [&](const json& v) { policy.rules = decodeList(v, decodeRule); });
  present("financialYearEndMonth", [&](const json& v) {
    policy.financialYearEndMonth = integer(v, "financialYearEndMonth");
  });
  return policy;
}

}  // namespace

json toJson(const RetentionPolicy& policy) {
  json regimes = json::array();
  for (const ComplianceRegime regime : policy.regimes) regimes.push_back(facts(regime).identifier);
  return {{"regimes", regimes},
          {"defaultClass", encode(policy.defaultClass)},
          {"classes", encodeList(policy.classes)},
          {"cryptoShreddingEnabled", policy.cryptoShreddingEnabled},
          {"indexAttachmentText", policy.indexAttachmentText},
          {"wormEnforcement", policy.wormEnforcement},
          {"sealEveryEntries", policy.sealEveryEntries},
          {"disposalPolicy", facts(policy.disposalPolicy).identifier},
          {"rules", encodeList(policy.rules)},
          {"financialYearEndMonth", policy.financialYearEndMonth}};
}

RetentionPolicy retentionPolicyFromJson(const json& value) {
  return decodeJson(value, kDocument, decodePolicy);
}

}  // namespace ambervane
