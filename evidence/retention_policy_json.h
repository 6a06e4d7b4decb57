#ifndef AMBERVANE_EVIDENCE_RETENTION_POLICY_JSON_H_
#define AMBERVANE_EVIDENCE_RETENTION_POLICY_JSON_H_

#include <nlohmann/json_fwd.hpp>

#include "evidence/retention_policy.h"

namespace ambervane {

/// A policy as the archive's manifest holds it. Keys are the field names.
nlohmann::json toJson(const RetentionPolicy& policy);

/// Reads what `toJson` makes. A key of the policy itself that is missing or null takes its default,
/// with content keys and write protection following from the regimes. Throws JsonError for a wrong
/// type, a number out of range, an unknown regime or disposal setting, or a class or rule that
/// lacks a key: a policy half understood must not decide what is kept.
RetentionPolicy retentionPolicyFromJson(const nlohmann::json& value);

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_RETENTION_POLICY_JSON_H_
