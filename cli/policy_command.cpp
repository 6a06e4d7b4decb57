#include <fmt/format.h>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/policy_change.h"
#include "compliance/organisational_facts.h"
#include "compliance/retention.h"

namespace ambervane {
namespace {

constexpr const char* kReasonMissing =
    "--reason is required when changing the policy; it goes into the audit chain";

void printClass(const RetentionPolicy& policy, const RetentionClass& each, std::ostream& out) {
  const bool isDefault = each.identifier == policy.defaultClass.identifier;
  out << "  " << printable(each.identifier) << "  " << policy.years(each) << "y  "
      << printable(each.label) << (each.fromEndOfBusinessYear ? "" : "  from the message date")
      << (isDefault ? "  *" : "") << "\n";
}

void printPolicy(const RetentionPolicy& policy, std::ostream& out) {
  std::vector<std::string> regimes;
  for (const ComplianceRegime regime : policy.regimes) regimes.emplace_back(facts(regime).label);
  const DisposalFacts& disposal = facts(policy.disposalPolicy);
  out << "Regimes        : " << (regimes.empty() ? "none" : join(regimes, ", ")) << "\n"
      << "Minimum        : " << policy.minimumYears() << " years, " << policy.countingDescription()
      << "\n"
      << "Disposal       : " << disposal.label << "\n"
      << std::string(17, ' ') << disposal.explanation << "\n"
      << "Default class  : " << printable(policy.defaultClass.label) << "\n"
      << "Classes\n";
  for (const RetentionClass& each : policy.classes) printClass(policy, each, out);
  if (policy.rules.empty()) {
    out << "Rules          : none — every message gets the default class\n";
    return;
  }
  out << "Rules (first match wins)\n";
  int number = 0;
  for (const RetentionRule& rule : policy.rules) {
    out << "  " << ++number << ". " << printable(rule.name) << " → "
        << printable(rule.classIdentifier) << ": " << printable(rule.summary())
        << (rule.enabled ? "" : " (off)") << "\n";
  }
  out << "Run `ambervane reclassify <archive>` to apply rules to messages already archived.\n";
}

/// An option that records a fact; a flag of that name lacks what is to be recorded.
std::optional<std::string> fact(const Arguments& arguments, const std::string& option) {
  auto value = arguments.option(option);
  if (!value && arguments.has(option)) throw CLIError::usage("--" + option + " expects a value");
  if (value) value = repairedUtf8(trim(*value));
  return value;
}

void recordFacts(MailArchive& archive, const OrganisationalFacts& stated,
                 const Arguments& arguments, Console& console) {
  const std::string by = repairedUtf8(trim(arguments.option("by").value_or("")));
  recordOrganisationalFacts(archive, stated, by.empty() ? AuditJournal::defaultActor() : by);
  const auto say = [&console](const char* what, const std::optional<std::string>& value) {
    if (value) console.out << what << ": " << printable(*value) << "\n";
  };
  say("second copy", stated.secondCopy);
  say("procedure", stated.procedure);
  say("timestamp authority", stated.timestampAuthority);
}

/// What the regimes would ask of an archive that is made under them and this one does not do.
void noteWhatIsFixed(const RetentionPolicy& policy, Console& console) {
  const RetentionPolicy fresh(policy.regimes);
  std::vector<std::string> missing;
  if (fresh.cryptoShreddingEnabled && !policy.cryptoShreddingEnabled) {
    missing.emplace_back("a key for each message");
  }
  if (fresh.wormEnforcement && !policy.wormEnforcement) {
    missing.emplace_back("write protection on full packs");
  }
  if (missing.empty()) return;
  console.out << "These regimes ask for " << join(missing, " and ")
              << ", which is decided when an archive is made; this one stays without.\n";
}

void recompute(MailArchive& archive, Console& console) {
  std::int64_t moved = 0;
  {
    ProgressLine line(console);
    moved = recomputeRetentionDates(archive, [&line](std::int64_t done, std::int64_t total) {
      if (line.isDue()) {
        line.show("worked out " + std::to_string(done) + "/" + std::to_string(total));
      }
    });
  }
  console.out << "Keep-until dates worked out again: " << moved << " moved. Nothing was deleted.\n";
}

}  // namespace

int policy(const Arguments& arguments, Console& console) {
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  const OrganisationalFacts stated{.secondCopy = fact(arguments, "second-copy"),
                                   .procedure = fact(arguments, "procedure"),
                                   .timestampAuthority = fact(arguments, "timestamp-authority")};
  const bool statesFacts = stated.secondCopy || stated.procedure || stated.timestampAuthority;
  const PolicyChange change = changedPolicy(archive->policy(), arguments);
  const std::string reason = repairedUtf8(trim(arguments.option("reason").value_or("")));
  if (!change.changes.empty() && reason.empty()) throw CLIError::usage(kReasonMissing);

  if (statesFacts) recordFacts(*archive, stated, arguments, console);
  if (!change.changes.empty()) {
    const bool newRegimes = change.policy.regimes != archive->policy().regimes;
    const std::string changes = join(change.changes, "; ");
    updatePolicy(*archive, change.policy, reason + " — " + changes);
    console.out << "Policy changed: " << printable(changes) << "\n";
    if (newRegimes) noteWhatIsFixed(archive->policy(), console);
  } else if (!statesFacts) {
    printPolicy(archive->policy(), console.out);
  }
  if (!archive->readOnly() && areRetentionDatesDue(*archive)) recompute(*archive, console);
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
