// What runs with every build: a sample of the campaign (`fault_campaign` goes on for as long as it
// is let), and what needs two processes or a disk of its own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <random>

#include "base/digest.h"
#include "base/file.h"
#include "compliance/check_names.h"
#include "tests/faults/corruption.h"
#include "tests/faults/scenarios.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

Templates& templates() {
  static Templates all;
  return all;
}

[[maybe_unused]] const bool kInMemory = (preferMemory(), true);

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
  constexpr long kTrialsPerKind = 2;
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
  faults.push_back({.at = trials.calls() + 100, .kind = "power", .sticky = false, .seed = 4});
  tryAll(static_cast<long>(faults.size()), [&](long i) {
    const Fault& fault = faults[static_cast<std::size_t>(i)];
    return std::pair(trials.name() + " " + fault.options() + " (" + trials.call(fault.at) + ")",
                     trials.run(fault));
  });
}

INSTANTIATE_TEST_SUITE_P(All, Scenarios,
                         testing::ValuesIn(allScenarios().begin(), allScenarios().end()),
                         [](const auto& scenario) { return std::string(scenario.param.name); });

TEST(Damage, isNamedAndHandsOutNothingWrong) {
  constexpr long kTrials = 150;
  constexpr const char* kKinds[] = {"plain", "keys", "smallest", "packs"};
  for (const char* kind : kKinds) templates().of(kind);
  tryAll(kTrials, [&](long i) {
    std::string what;
    const Problems problems =
        judgeDamage(templates().of(kKinds[i % 4]), static_cast<std::uint64_t>(i), what);
    return std::pair(std::string(kKinds[i % 4]) + " " + std::to_string(i) + ": " + what, problems);
  });
}

TEST(Creation, leavesNothingOrAnArchive) {
  const auto trial = [](const Fault& fault) {
    const ScratchFolder folder;
    const Program program(folder.path());
    const fs::path place = folder / "a";
    const Outcome made = program.run({"create", place, "--regimes", "eu-gdpr"}, fault, place);
    Problems problems;
    if (fault.at == 0) return std::pair(std::to_string(program.calls().size()), problems);
    if (made.isHung || (made.signal != 0 && fault.isError())) problems.push_back(made.text());
    // Before the manifest stands there is no archive, and nobody has been told that there is one.
    if (made.succeeded() || fs::exists(place / "archive.json")) {
      const Outcome used = program.run({"import", place, templates().mail() / "old"});
      if (!used.succeeded()) problems.push_back(used.text());
      const Outcome verified = program.run({"verify", place, "--deep"});
      const bool mayTear = fault.kind == "torn" || fault.kind == "power" || fault.kind == "short";
      for (const std::string& check : failedChecks(verified.out)) {
        if (!mayTear || check != check_names::kChain) problems.push_back(verified.out);
      }
      for (const std::string& stray : judgeTidiness(place)) problems.push_back(stray);
    }
    return std::pair(fault.options(), problems);
  };
  const long calls = std::stol(trial(Fault{}).first);
  ASSERT_GT(calls, 50);
  constexpr long kTrials = 60;
  tryAll(kTrials, [&](long i) {
    Fault fault;
    fault.at = 1 + i * calls / kTrials;
    fault.kind = faultKinds()[static_cast<std::size_t>(i) % faultKinds().size()];
    fault.sticky = i % 3 == 0;
    fault.seed = static_cast<std::uint64_t>(i);
    return trial(fault);
  });
}

/// An archive of a kind, with a program to use it and many messages that it does not have yet.
class Busy : public testing::Test {
 protected:
  static constexpr int kFirst = 1000;
  static constexpr int kLast = 2200;

  explicit Busy(const char* kind = "keys") : template_(templates().of(kind)) {
    template_.copyTo(place_);
    writeCorpus(folder_ / "many", kFirst, kLast);
  }
  Outcome run(const std::string& command, std::vector<std::string> rest = {}) const {
    rest.insert(rest.begin(), {command, place_});
    return program_.run(rest);
  }
  int startImport() const {
    return program_.launch({"import", place_, folder_ / "many"}, {}, "import");
  }
  bool isImporting(int process) const {
    return readFile(place_ / "chain" / "journal.jsonl").find("many") != Bytes::npos &&
           ::kill(process, 0) == 0 && !fs::is_empty(place_ / "lock");
  }
  void waitForImport(int process) const {
    while (!isImporting(process)) ::usleep(500);
  }
  void expectSound() const {
    const Outcome verified = run("verify", {"--deep"});
    EXPECT_TRUE(verified.succeeded()) << verified.out << verified.err;
    EXPECT_THAT(judgeMessages(place_), IsEmpty());
    EXPECT_THAT(judgeChain(place_, false), IsEmpty());
  }

  const Template& template_;
  const ScratchFolder folder_;
  const fs::path place_ = folder_ / "a";
  const Program program_{folder_.path()};
};

TEST_F(Busy, readersBesideAWriter) {
  const int import = startImport();
  waitForImport(import);
  int readings = 0;
  for (; readings == 0 || isImporting(import); ++readings) {
    const Outcome found = run("search", {corpusWord(3)});
    EXPECT_TRUE(found.succeeded()) << found.text();
    EXPECT_THAT(found.out, HasSubstr(corpusWord(3)));
    const Outcome counted = run("stats");
    EXPECT_TRUE(counted.succeeded()) << counted.text();
  }
  const Outcome imported = program_.finish(import, "import");
  EXPECT_TRUE(imported.succeeded()) << imported.text();
  EXPECT_THAT(imported.out, HasSubstr("Stored     : " + std::to_string(kLast - kFirst + 1)));
  expectSound();
}

TEST_F(Busy, aSecondWriterIsRefused) {
  const int import = startImport();
  waitForImport(import);
  const Outcome second = run("seal");
  ASSERT_TRUE(isImporting(import)) << "the import was over too early";
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.err, HasSubstr("error: This archive is already open for writing. It is open "
                                    "in ambervane (process " +
                                    std::to_string(import) + ")"));
  EXPECT_TRUE(program_.finish(import, "import").succeeded());
  EXPECT_TRUE(run("seal").succeeded()) << "a writer that has gone holds nothing";
  expectSound();
}

TEST_F(Busy, twoWriteTheJournal) {
  constexpr long kSearches = 40;
  const auto entries = [&] {
    const Bytes journal = readFile(place_ / "chain" / "journal.jsonl");
    return std::ranges::count(journal, '\n');
  };
  const auto before = entries();
  tryAll(kSearches, [&](long i) {
    const fs::path scratch = folder_ / ("s" + std::to_string(i));
    fs::create_directory(scratch);
    const Outcome found = Program(scratch).run({"search", place_, corpusWord(2)});
    return std::pair(std::string("search"),
                     found.succeeded() ? Problems{} : Problems{found.text()});
  });
  EXPECT_EQ(entries(), before + kSearches);
  expectSound();
}

TEST_F(Busy, copiesMadeMeanwhile) {
  const int import = startImport();
  waitForImport(import);
  std::vector<fs::path> copies;
  while (copies.empty() || (isImporting(import) && copies.size() < 6)) {
    copies.push_back(folder_ / ("copy" + std::to_string(copies.size())));
    std::error_code movesOn;
    fs::copy(place_, copies.back(), fs::copy_options::recursive, movesOn);
  }
  EXPECT_TRUE(program_.finish(import, "import").succeeded());
  expectSound();
  tryAll(static_cast<long>(copies.size()), [&](long i) {
    const fs::path& copy = copies[static_cast<std::size_t>(i)];
    const fs::path scratch = folder_ / ("c" + std::to_string(i));
    fs::create_directory(scratch);
    const Program program(scratch);
    Problems problems;
    const auto run = [&](const std::vector<std::string>& words) {
      const Outcome outcome = program.run(words);
      if (outcome.signal != 0 || (!outcome.succeeded() && outcome.out.empty() &&
                                  outcome.err.find("error: ") == std::string::npos)) {
        problems.push_back(words.front() + ": " + outcome.text());
      }
      return outcome;
    };
    const bool isSound = run({"verify", copy, "--deep"}).succeeded();
    for (const int number : {1, 3, kFirst, kFirst + 100, kLast}) {
      const std::string digest = sha256Hex(corpusMail(number));
      const Outcome shown = run({"show", copy, digest, "--raw"});
      if (shown.succeeded() && sha256Hex(shown.out) != digest)
        problems.push_back("another message");
      if (isSound && number < kFirst && !shown.succeeded()) problems.push_back(shown.text());
    }
    // What a copy lacks comes in again.
    if (isSound) {
      const Outcome again = run({"import", copy, folder_ / "many"});
      if (!again.succeeded()) problems.push_back(again.text());
      for (const std::string& each : judgeMessages(copy)) problems.push_back(each);
    }
    return std::pair(copy.native(), problems);
  });
}

/// The archive on a disk of its own, which only root can make.
class OwnDisk : public Busy {
 protected:
  static constexpr const char* kDisk = "size=100m";

  OwnDisk() {
    fs::create_directory(disk_);
    isMounted_ = ::mount("tmpfs", disk_.c_str(), "tmpfs", 0, kDisk) == 0;
    if (isMounted_) template_.copyTo(onDisk_);
  }
  ~OwnDisk() override {
    if (isMounted_) ::umount2(disk_.c_str(), MNT_DETACH);
  }
  void SetUp() override {
    if (!isMounted_) GTEST_SKIP() << "cannot mount a disk for the test";
  }
  Outcome onDisk(std::vector<std::string> words) const {
    for (std::string& word : words) {
      if (word == "@") word = onDisk_;
    }
    return program_.run(words);
  }
  void fill() const {
    std::error_code ignored;
    AppendFile ballast = AppendFile::open(disk_ / "ballast", 0600);
    const Bytes block(65536, 'x');
    try {
      for (;;) ballast.append(block);
    } catch (const FileError&) {
      // full
    }
  }
  /// `mayTear`: a line of the journal may have been cut off by the end of the disk.
  void expectAsBefore(const Holdings& before, bool mayTear) const {
    EXPECT_TRUE(onDisk({"seal", "@"}).succeeded());
    auto failed = failedChecks(onDisk({"verify", "@", "--deep"}).out);
    if (mayTear) failed.erase(check_names::kChain);
    EXPECT_THAT(failed, IsEmpty());
    EXPECT_THAT(judgeMessages(onDisk_), IsEmpty());
    EXPECT_THAT(judgeChain(onDisk_, mayTear), IsEmpty());
    EXPECT_THAT(judgeTidiness(onDisk_), IsEmpty());
    EXPECT_EQ(readHoldings(onDisk_).facts, before.facts);
  }

  const fs::path disk_ = folder_ / "disk";
  const fs::path onDisk_ = disk_ / "a";
  bool isMounted_ = false;
};

TEST_F(OwnDisk, full) {
  fill();
  const std::vector<std::string> kCommands[] = {
      {"import", "@", folder_ / "many"},
      {"tag", "@", "--add", "Wichtig", "--query", "from:p"},
      {"seal", "@"},
      {"policy", "@", "--set-class", "business:B:12:endOfYear", "--reason", "r"},
      {"reindex", "@"},
  };
  for (const auto& words : kCommands) {
    const Outcome outcome = onDisk(words);
    EXPECT_EQ(outcome.status, 1) << words.front() << outcome.text();
    EXPECT_THAT(outcome.err, testing::ContainsRegex("error: .*(space|full|disk)")) << words.front();
  }
  fs::remove(disk_ / "ballast");
  expectAsBefore(template_.holdings(), true);
}

TEST_F(OwnDisk, fillsUpInMidRun) {
  const int import = program_.launch({"import", onDisk_, folder_ / "many"}, {}, "import");
  while (readFile(onDisk_ / "chain" / "journal.jsonl").find("many") == Bytes::npos) ::usleep(500);
  fill();
  const Outcome outcome = program_.finish(import, "import");
  EXPECT_EQ(outcome.status, 1) << "the disk was filled too late";
  EXPECT_THAT(outcome.err, HasSubstr("once the cause is removed, import the same source again"));
  fs::remove(disk_ / "ballast");
  EXPECT_TRUE(onDisk({"import", "@", folder_ / "many"}).succeeded());
  expectAsBefore(readHoldings(onDisk_), true);
}

TEST_F(OwnDisk, becomesReadOnly) {
  ASSERT_EQ(::mount("tmpfs", disk_.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, kDisk), 0);
  const Outcome found = onDisk({"search", "@", corpusWord(3)});
  EXPECT_TRUE(found.succeeded()) << found.text();
  EXPECT_THAT(found.out, HasSubstr(corpusWord(3)));
  const Outcome imported = onDisk({"import", "@", folder_ / "many"});
  EXPECT_EQ(imported.status, 1);
  EXPECT_THAT(imported.err, HasSubstr("error: The archive is open read-only"));
  ASSERT_EQ(::mount("tmpfs", disk_.c_str(), "tmpfs", MS_REMOUNT, kDisk), 0);
  expectAsBefore(template_.holdings(), false);
}

}  // namespace
}  // namespace ambervane
