// What runs with every build: a sample of the campaign (`fault_campaign` goes on for as long as it
// is let), and what needs two processes or a disk of its own.

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <random>

#include "tests/faults/corruption.h"
#include "tests/faults/scenarios.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

Templates& templates() {
  static Templates all;
  return all;
}

/// Calls `body` with 0 to `count` - 1, two at a time, and reports what it says is wrong.
void tryAll(long count, const std::function<std::pair<std::string, Problems>(long)>& body) {
  std::atomic<long> next{0};
  std::mutex mutex;
  const auto work = [&] {
    for (long i = next++; i < count; i = next++) {
      const auto [what, problems] = body(i);
      const std::lock_guard lock(mutex);
      for (const std::string& problem : problems) ADD_FAILURE() << what << "\n  " << problem;
    }
  };
  auto second = std::async(std::launch::async, work);
  work();
  second.get();
}

class Scenarios : public testing::TestWithParam<Scenario> {};

TEST_P(Scenarios, surviveFaults) {
  constexpr long kTrialsPerKind = 5;
  const Trials trials(GetParam(), templates().of(GetParam().kind));
  std::vector<Fault> faults;
  std::mt19937_64 random(1);
  for (const std::string& kind : faultKinds()) {
    const long count = kind == "power" ? 3 * kTrialsPerKind : kTrialsPerKind;
    for (long i = 0; i < count; ++i) {
      // One somewhere in each part of the run.
      Fault fault;
      const auto part = static_cast<std::uint64_t>(trials.calls() / count + 1);
      fault.at = 1 + i * trials.calls() / count + static_cast<long>(random() % part);
      fault.kind = kind;
      fault.sticky = random() % 2 == 0;
      fault.seed = random() % 1'000'000'000;
      faults.push_back(fault);
    }
  }
  tryAll(static_cast<long>(faults.size()), [&](long i) {
    const Fault& fault = faults[static_cast<std::size_t>(i)];
    return std::pair(trials.name() + " " + fault.options() + " (" + trials.call(fault.at) + ")",
                     trials.run(fault));
  });
}

INSTANTIATE_TEST_SUITE_P(All, Scenarios, testing::ValuesIn(allScenarios().begin(), allScenarios().end()),
                         [](const auto& scenario) { return std::string(scenario.param.name); });

TEST(Damage, isNamedAndHandsOutNothingWrong) {
  constexpr long kTrials = 150;
  constexpr const char* kKinds[] = {"plain", "keys", "smallest", "packs"};
  for (const char* kind : kKinds) templates().of(kind);
  tryAll(kTrials, [&](long i) {
    std::string what;
    const Problems problems = judgeDamage(templates().of(kKinds[i % 4]),
                                          static_cast<std::uint64_t>(i), what);
    return std::pair(std::string(kKinds[i % 4]) + " " + std::to_string(i) + ": " + what, problems);
  });
}

}  // namespace
}  // namespace ambervane
