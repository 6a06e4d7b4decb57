#include "cli/policy_change.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "base/digest.h"
#include "base/text.h"
#include "cli/console.h"

namespace ambervane {
namespace {

constexpr std::int64_t kMostYears = 9999;

constexpr const char* kDisposalExpected = "--disposal must be reportOnly or manualApproval";
constexpr const char* kNoRegimes = "no recognised regimes in --regimes";
constexpr const char* kMonthExpected =
    "--financial-year-end expects the month the financial year ends in, 1 to 12";
constexpr const char* kClassExpected =
    "--set-class expects identifier:Label:years[:endOfYear|exactDate]";
constexpr const char* kRuleExpected =
    "--add-rule expects name:classIdentifier:criteria, with a known class";

std::string cleaned(std::string_view text) { return repairedUtf8(trim(text)); }

[[noreturn]] void refuse(const std::string& text) { throw CLIError::usage(text); }

class Editor {
 public:
  Editor(RetentionPolicy policy, const Arguments& arguments)
      : change_{std::move(policy), {}}, policy_(change_.policy), arguments_(arguments) {}
  Editor(const Editor&) = delete;
  Editor& operator=(const Editor&) = delete;

  PolicyChange run() {
    ifGiven("disposal", [this](const std::string& value) { setDisposal(value); });
    ifGiven("regimes", [this](const std::string& value) { setRegimes(value); });
    ifGiven("financial-year-end", [this](const std::string& value) { setMonth(value); });
    forEach("set-class", [this](const std::string& value) { setClass(value); });
    forEach("remove-class", [this](const std::string& value) { removeClass(cleaned(value)); });
    ifGiven("default-class", [this](const std::string& value) { setDefault(cleaned(value)); });
    forEach("add-rule", [this](const std::string& value) { addRule(value); });
    forEach("remove-rule", [this](const std::string& value) { removeRule(cleaned(value)); });
    return std::move(change_);
  }

 private:
  template <typename Take>
  void ifGiven(const std::string& option, Take take) {
    if (arguments_.has(option)) take(arguments_.option(option).value_or(""));
  }

  template <typename Take>
  void forEach(const std::string& option, Take take) {
    const auto given = arguments_.multiOptions.find(option);
    if (given != arguments_.multiOptions.end()) {
      for (const std::string& value : given->second) take(value);
    } else if (arguments_.flags.contains(option)) {
      take(std::string());
    }
  }

  void note(const std::string& change) { change_.changes.push_back(change); }

  void setDisposal(const std::string& value) {
    const auto disposal = disposalPolicyFromIdentifier(value);
    if (!disposal) refuse(kDisposalExpected);
    policy_.disposalPolicy = *disposal;
    note("disposal=" + value);
  }

  void setRegimes(const std::string& value) {
    std::set<ComplianceRegime> regimes = regimesFromList(value);
    if (regimes.empty()) refuse(kNoRegimes);
    policy_.regimes = std::move(regimes);
    note("regimes=" + listOf(policy_.regimes));
  }

  void setMonth(const std::string& value) {
    const auto month = parseInteger(trim(value));
    if (!month || *month < 1 || *month > 12) refuse(kMonthExpected);
    policy_.financialYearEndMonth = static_cast<int>(*month);
    note("financial year end=" + std::to_string(*month));
  }

  void setClass(const std::string& value) {
    const auto parts = split(value, ':');
    if (parts.size() < 3 || parts.size() > 4) refuse(kClassExpected);
    RetentionClass made;
    made.identifier = cleaned(parts[0]);
    made.label = cleaned(parts[1]);
    const auto years = parseInteger(trim(parts[2]));
    if (made.identifier.empty() || made.label.empty() || !years || *years < 0 ||
        *years > kMostYears) {
      refuse(kClassExpected);
    }
    made.years = static_cast<int>(*years);
    made.fromEndOfBusinessYear = parts.size() < 4 || lowercase(trim(parts[3])) != "exactdate";
    const auto known =
        std::ranges::find(policy_.classes, made.identifier, &RetentionClass::identifier);
    if (known == policy_.classes.end()) {
      policy_.classes.push_back(made);
    } else {
      *known = made;
    }
    // The policy keeps a copy of its default.
    if (policy_.defaultClass.identifier == made.identifier) policy_.defaultClass = made;
    note("class=" + made.identifier + ":" + made.label + ":" + std::to_string(made.years) +
         (made.fromEndOfBusinessYear ? ":endOfYear" : ":exactDate"));
  }

  void removeClass(const std::string& identifier) {
    if (identifier == policy_.defaultClass.identifier) {
      refuse("cannot remove the default class; set another default first");
    }
    const auto removed = std::erase_if(
        policy_.classes, [&](const RetentionClass& each) { return each.identifier == identifier; });
    if (removed == 0) refuse("no such class: " + printable(identifier));
    note("removed class " + identifier);
  }

  void setDefault(const std::string& identifier) {
    auto found = policy_.retentionClass(identifier);
    if (!found) refuse("no such class: " + printable(identifier));
    policy_.defaultClass = *std::move(found);
    note("default=" + identifier);
  }

  /// "name:class:key=value,key=value"; only the first two colons divide.
  void addRule(const std::string& value) {
    const auto first = value.find(':');
    const auto second = first == std::string::npos ? first : value.find(':', first + 1);
    if (second == std::string::npos) refuse(kRuleExpected);
    RetentionRule rule;
    rule.id = randomUuid();
    rule.name = cleaned(std::string_view(value).substr(0, first));
    rule.classIdentifier = cleaned(std::string_view(value).substr(first + 1, second - first - 1));
    if (rule.name.empty() || !policy_.retentionClass(rule.classIdentifier)) refuse(kRuleExpected);
    for (const std::string_view pair : split(std::string_view(value).substr(second + 1), ',')) {
      if (!trim(pair).empty()) addCriterion(rule, pair);
    }
    if (rule.isEmpty()) refuse("the rule has no criteria, so it would match nothing");
    note("rule=" + rule.name + ":" + rule.classIdentifier + " (" + rule.summary() + ")");
    policy_.rules.push_back(std::move(rule));
  }

  static void addCriterion(RetentionRule& rule, std::string_view pair) {
    const auto equals = pair.find('=');
    if (equals == std::string_view::npos) refuse(kRuleExpected);
    const std::string_view key = trim(pair.substr(0, equals));
    std::string value = cleaned(pair.substr(equals + 1));
    if (key == "attachment") {
      rule.requiresAttachment = value == "yes" || value == "1";
      return;
    }
    // A criterion left blank would match nothing.
    if (value.empty()) refuse(kRuleExpected);
    if (key == "folder") {
      rule.folders.push_back(std::move(value));
    } else if (key == "participant" || key == "from" || key == "to") {
      rule.participants.push_back(std::move(value));
    } else if (key == "subject") {
      rule.subjectContains.push_back(std::move(value));
    } else {
      refuse(kRuleExpected);
    }
  }

  void removeRule(const std::string& name) {
    const auto removed =
        std::erase_if(policy_.rules, [&](const RetentionRule& rule) { return rule.name == name; });
    if (removed == 0) refuse("no such rule: " + printable(name));
    note("removed rule " + name);
  }

  PolicyChange change_;
  RetentionPolicy& policy_;
  const Arguments& arguments_;
};

}  // namespace

PolicyChange changedPolicy(const RetentionPolicy& policy, const Arguments& arguments) {
  return Editor(policy, arguments).run();
}

}  // namespace ambervane
