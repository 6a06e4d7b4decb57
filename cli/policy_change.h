#ifndef AMBERVANE_CLI_POLICY_CHANGE_H_
#define AMBERVANE_CLI_POLICY_CHANGE_H_

#include <string>
#include <vector>

#include "cli/arguments.h"
#include "evidence/retention_policy.h"

namespace ambervane {

/// A policy as the options of a command line leave it.
struct PolicyChange {
  RetentionPolicy policy;
  std::vector<std::string>
      changes;  ///< one for each option that changes something, for the journal
};

/// Applies the options that change a policy, in the order in which they are documented; one that
/// may be repeated, as often as it is there. Throws CLIError for the first that is refused.
PolicyChange changedPolicy(const RetentionPolicy& policy, const Arguments& arguments);

}  // namespace ambervane

#endif  // AMBERVANE_CLI_POLICY_CHANGE_H_
