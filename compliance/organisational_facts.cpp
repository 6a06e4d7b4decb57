#include "compliance/organisational_facts.h"

#include <map>
#include <string_view>

#include "compliance/organisational_checks.h"
#include "evidence/timestamp_defaults.h"
#include "store/recorded_change.h"

namespace ambervane {
namespace {

constexpr std::string_view kTimestampAuthority = "timestamp_authority";

}  // namespace

void recordOrganisationalFacts(MailArchive& archive, const OrganisationalFacts& stated,
                               const std::string& by) {
  RecordedChange change(archive);
  std::map<std::string, std::string> details = {
      {"by", by}, {"note", "recorded by a person; the software cannot verify these"}};
  const std::size_t unstated = details.size();
  const auto take = [&](const char* name, std::string_view setting,
                        const std::optional<std::string>& value) {
    if (!value) return;
    archive.catalog().setMeta(setting, *value);
    details[name] = *value;
  };
  take("second_copy", settings::kSecondCopy, stated.secondCopy);
  take("procedure", settings::kProcedure, stated.procedure);
  take("timestamp_authority", kTimestampAuthority, stated.timestampAuthority);
  if (details.size() == unstated) return;
  archive.journal().append(AuditAction::policyChanged, "organisational", details, by);
  change.finish();
  if (stated.timestampAuthority) {
    archive.sealer().setTimestampAuthorities(timestampAuthorities(stated.timestampAuthority));
  }
}

}  // namespace ambervane
