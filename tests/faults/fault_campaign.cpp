// The long campaign: trials chosen by a seed until the time is up. Each fault found is one block of
// output that begins with the words that repeat it.
//
//   fault_campaign [--seed S] [--seconds T] [--scenario NAME]     random trials
//   fault_campaign --scenario NAME --at N --kind K [--sticky] [--seed S]   one trial
//   fault_campaign --scenario damage:KIND --seed S --at 0         one damaged archive
//   fault_campaign --list                                          scenarios, and their calls

#include <atomic>
#include <chrono>
#include <future>
#include <iostream>
#include <mutex>
#include <random>

#include "cli/arguments.h"
#include "tests/faults/corruption.h"
#include "tests/faults/scenarios.h"

namespace ambervane {
namespace {

constexpr const char* kDamagedKinds[] = {"plain", "keys", "smallest", "packs"};
constexpr const char* kDamage = "damage:";

/// What is tried, and what came of it.
class Campaign {
 public:
  explicit Campaign(const std::string& only) {
    for (const Scenario& scenario : allScenarios()) {
      if (!only.empty() && only != scenario.name) continue;
      trials_.emplace_back(scenario, templates_.of(scenario.kind));
    }
    for (const char* kind : kDamagedKinds) {
      if (only.empty() || only == kDamage + std::string(kind)) damaged_.emplace_back(kind);
    }
    for (const std::string& kind : damaged_) templates_.of(kind);
  }
  const std::vector<Trials>& trials() const { return trials_; }

  void tryAtRandom(std::uint64_t seed) {
    std::mt19937_64 random(seed);
    if (trials_.empty() || (!damaged_.empty() && random() % 5 == 0)) {
      return damage(damaged_[random() % damaged_.size()], random() % 1'000'000'000);
    }
    const Trials& trials = trials_[random() % trials_.size()];
    Fault fault;
    fault.at = 1 + static_cast<long>(random() % static_cast<std::uint64_t>(trials.calls()));
    // Half of all are cuts of the power, which have most ways to go, at the end not least.
    fault.kind = random() % 2 == 0 ? "power" : faultKinds()[random() % faultKinds().size()];
    if (fault.kind == "power" && random() % 6 == 0) fault.at = trials.calls() + 100;
    fault.sticky = random() % 2 == 0;
    fault.seed = random() % 1'000'000'000;
    tryFault(trials, fault);
  }

  void tryFault(const Trials& trials, const Fault& fault) {
    report("--scenario " + trials.name() + " " + fault.options(), trials.call(fault.at),
           trials.run(fault));
  }

  void damage(const std::string& kind, std::uint64_t seed) {
    std::string what;
    const Problems problems = judgeDamage(templates_.of(kind), seed, what);
    report("--scenario " + (kDamage + kind) + " --at 0 --seed " + std::to_string(seed), what,
           problems);
  }

  int tell() const {
    std::cout << made_ << " trials, " << bad_ << " with problems\n";
    return bad_ == 0 ? 0 : 1;
  }

 private:
  void report(const std::string& options, const std::string& what, const Problems& problems) {
    const std::lock_guard lock(mutex_);
    ++made_;
    if (problems.empty()) return;
    ++bad_;
    std::cout << options << "   (" << what << ")\n";
    for (const std::string& problem : problems) std::cout << "    " << problem << "\n";
    std::cout << std::flush;
  }

  Templates templates_;
  std::vector<Trials> trials_;
  std::vector<std::string> damaged_;
  std::mutex mutex_;
  long made_ = 0;
  long bad_ = 0;
};

int runCampaign(const Arguments& arguments) {
  const auto number = [&arguments](const char* name, long otherwise) {
    const auto text = arguments.option(name);
    return text ? std::stol(*text) : otherwise;
  };
  const std::string only = arguments.option("scenario").value_or("");
  const auto seed = static_cast<std::uint64_t>(number("seed", 1));
  Campaign campaign(only);
  if (arguments.has("list")) {
    for (const Trials& each : campaign.trials()) {
      std::cout << each.name() << ": " << each.calls() << " calls\n";
      for (long at = 1; !only.empty() && at <= each.calls(); ++at) {
        std::cout << each.call(at) << "\n";
      }
    }
    return 0;
  }
  if (arguments.option("at")) {
    Fault fault;
    fault.at = number("at", 1);
    fault.kind = arguments.option("kind").value_or("kill");
    fault.sticky = arguments.has("sticky");
    fault.seed = seed;
    if (only.starts_with(kDamage)) {
      campaign.damage(only.substr(std::string(kDamage).size()), seed);
    } else {
      campaign.tryFault(campaign.trials().at(0), fault);
    }
    return campaign.tell();
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(number("seconds", 60));
  std::atomic<std::uint64_t> next{seed * 1'000'000};
  const auto work = [&] {
    while (std::chrono::steady_clock::now() < end) campaign.tryAtRandom(next++);
  };
  auto second = std::async(std::launch::async, work);
  work();
  second.get();
  return campaign.tell();
}

}  // namespace
}  // namespace ambervane

int main(int argc, char** argv) {
  ambervane::preferMemory();
  std::vector<std::string> words(argv + 1, argv + argc);
  words.insert(words.begin(), "campaign");
  return ambervane::runCampaign(ambervane::Arguments::parse(words));
}
