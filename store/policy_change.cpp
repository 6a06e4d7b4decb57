#include "store/policy_change.h"

#include <utility>

#include "base/json.h"
#include "evidence/retention_policy_json.h"
#include "store/recorded_change.h"

namespace ambervane {
namespace {

constexpr const char* kFinancialYearSetting = "financial_year_end_month";
/// In the catalog's meta table, from before the manifest is replaced until the journal has it: a
/// JSON object with the policy that is to come and what the journal is to say of it.
constexpr const char* kUnrecordedKey = "unrecorded_policy";

void recordPolicy(MailArchive& archive, const std::map<std::string, std::string>& details) {
  RecordedChange change(archive);
  archive.catalog().setMeta(kFinancialYearSetting,
                            std::to_string(archive.policy().financialYearEndMonth));
  archive.catalog().setMeta(kUnrecordedKey, "");
  archive.journal().append(AuditAction::policyChanged, "retention", details);
  change.finish();
}

}  // namespace

void replacePolicyOnRecord(MailArchive& archive, const RetentionPolicy& policy,
                           const std::map<std::string, std::string>& details) {
  archive.catalog().setMeta(kUnrecordedKey,
                            compactJson({{"policy", toJson(policy)}, {"details", details}}));
  archive.replacePolicy(policy);
  recordPolicy(archive, details);
}

bool completePolicyChange(MailArchive& archive) {
  const std::string unrecorded = archive.catalog().meta(kUnrecordedKey).value_or("");
  if (unrecorded.empty()) return false;
  try {
    const auto noted = parseJson(unrecorded, kUnrecordedKey);
    auto [policy, details] = decodeJson(noted, kUnrecordedKey, [](const nlohmann::json& json) {
      return std::pair(retentionPolicyFromJson(json.at("policy")),
                       json.at("details").get<std::map<std::string, std::string>>());
    });
    // These two settings stay as they are when a policy is replaced.
    policy.cryptoShreddingEnabled = archive.policy().cryptoShreddingEnabled;
    policy.wormEnforcement = archive.policy().wormEnforcement;
    if (policy == archive.policy()) {
      details["note"] = "interrupted, recorded when the archive was next opened";
      recordPolicy(archive, details);
      return true;
    }
  } catch (const JsonError&) {
    // Damaged; that the journal does not know the policy is for verification to tell.
  }
  archive.catalog().setMeta(kUnrecordedKey, "");
  return false;
}

}  // namespace ambervane
