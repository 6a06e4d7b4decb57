#include "tests/faults/scenarios.h"

#include <signal.h>

#include <algorithm>
#include <stdexcept>

#include "base/digest.h"
#include "base/file.h"
#include "base/json.h"
#include "base/text.h"
#include "compliance/check_names.h"
#include "platform/immutable_flag.h"
#include "store/sqlite_database.h"
#include "tests/support/archive_files.h"
#include "tests/support/mail_builder.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr int kOldMails = 8;
constexpr int kFirstNew = 7;  // two of the new ones are old ones too
constexpr int kLastNew = 20;

constexpr Kind kKinds[] = {
    {.name = "empty", .regimes = "de-gobd", .hasMail = false},
    {.name = "plain", .regimes = "de-gobd"},
    {.name = "keys", .regimes = "eu-gdpr"},
    {.name = "smallest", .regimes = "de-gobd", .compression = "smallest"},
    {.name = "packs", .regimes = "eu-gdpr,de-gobd", .maxPackBytes = 16000},
};

const std::vector<std::string> kApproved = {"--approved-by", "Carla",     "--reason",
                                            "asked",         "--confirm", "DISPOSE"};

std::vector<std::string> operator+(std::vector<std::string> words,
                                   const std::vector<std::string>& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

/// One row a scenario.
const Scenario kScenarios[] = {
    {"importFirst", "empty", {"import", "@", "@new"}},
    {"import", "plain", {"import", "@", "@new"}},
    {"importKeys", "keys", {"import", "@", "@new"}},
    {"importSmallest", "smallest", {"import", "@", "@new"}},
    {"importPacks", "packs", {"import", "@", "@new"}},
    {"importTwice", "keys", {"import", "@", "@old", "--account", "second"}},
    {"seal", "plain", {"seal", "@"}},
    {"erase", "keys", {"erase", "@", "@id3", "--reason", "asked", "--requester", "Bert"}},
    {"request", "packs",
     std::vector<std::string>{"request", "@", "--participant", "p2@example.com", "--participant",
                              "p3@example.com,p6@example.com,p8@example.com", "--erase"} +
         kApproved,
     true, "erasure approved"},
    {"dispose", "keys", std::vector<std::string>{"retention", "@", "--dispose"} + kApproved, true,
     "disposal approved"},
    {"tag", "plain", {"tag", "@", "--add", "Wichtig", "--query", "from:p"}},
    {"holdPlace",
     "plain",
     {"hold", "@", "place", "--name", "Klage", "--reason", "r", "--participant", "p4@example.com"},
     false},
    {"holdRelease", "keys", {"hold", "@", "release", "--id", "@hold", "--reason", "r"}, false},
    {"reclassify", "plain", {"reclassify", "@"}},
    {"policy", "plain", {"policy", "@", "--set-class", "business:B:12:endOfYear", "--reason", "r"}},
    {"smart", "plain", {"smart", "@", "add", "Neues", "from:p1"}, false},
    {"reindex", "keys", {"reindex", "@"}},
    {"verify", "packs", {"verify", "@", "--deep"}},
    {"control", "smallest", {"control", "@", "--by", "Anna"}},
    {"search", "keys", {"search", "@", "from:p2"}},
    {"merge", "keys", {"merge", "@", "@other"}},
    {"mergeSmallest", "smallest", {"merge", "@", "@other"}},
    {"rebuild", "packs", {"rebuild-catalog", "@"}, true, nullptr, true},
    {"rebuildSmallest", "smallest", {"rebuild-catalog", "@"}, true, nullptr, true},
};

/// Runs what must go well.
std::string need(const Program& program, const std::vector<std::string>& words) {
  const Outcome outcome = program.run(words);
  if (!outcome.succeeded()) throw std::runtime_error(words.front() + ": " + outcome.text());
  return outcome.out;
}

Problems differences(const std::set<std::string>& expected, const std::set<std::string>& found) {
  Problems problems;
  for (const std::string& each : expected) {
    if (!found.contains(each)) problems.push_back("missing: " + each);
  }
  for (const std::string& each : found) {
    if (!expected.contains(each)) problems.push_back("too much: " + each);
  }
  return problems;
}

}  // namespace

std::span<const Scenario> allScenarios() { return kScenarios; }

std::string corpusWord(int number) { return "geheim" + std::to_string(number) + "x"; }

Bytes corpusMail(int number) {
  const std::string n = std::to_string(number);
  const std::string word = corpusWord(number);
  const auto file = [](const std::string& name, const Bytes& content) {
    return "--b1\r\nContent-Type: application/octet-stream\r\nContent-Transfer-Encoding: base64\r\n"
           "Content-Disposition: attachment; filename=\"" +
           name + "\"\r\n\r\n" + wrappedBase64(content);
  };
  // An erased message keeps its Message-ID and its sender's address.
  Bytes mail = "Message-ID: <m" + n + "@example.com>\r\nDate: Tue, " +
               std::to_string(1 + number % 28) + " Feb 2011 10:00:00 +0000\r\nFrom: p" + n +
               "@example.com\r\nTo: " + word + "@example.org\r\nSubject: Betreff " + word +
               "\r\nMIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=\"b1\"\r\n\r\n"
               "--b1\r\nContent-Type: text/plain; charset=utf-8\r\n\r\nGuten Tag, " +
               word + "\r\n";
  if (number % 3 == 0) mail += file("gemeinsam.bin", noise(5000, 7));
  if (number % 4 == 2) mail += file(word + ".bin", noise(4500, 100 + std::uint32_t(number)));
  return mail + "--b1--\r\n";
}

void writeCorpus(const fs::path& folder, int first, int last) {
  createFolders(folder);
  for (int i = first; i <= last; ++i) {
    AppendFile::open(folder / (std::to_string(10'000 + i) + ".eml"), 0600).append(corpusMail(i));
  }
}

Templates::Templates() {
  writeCorpus(folder_ / "old", 1, kOldMails);
  writeCorpus(folder_ / "new", kFirstNew, kLastNew);
}

const Template& Templates::of(const std::string& kind) {
  auto& known = known_[kind];
  if (!known) {
    const auto* found = std::ranges::find(kKinds, kind, &Kind::name);
    known = std::make_unique<Template>(*found, folder_.path());
  }
  return *known;
}

Template::Template(const Kind& kind, const fs::path& mail) : mail_(mail) {
  const Program program(folder_.path());
  const std::string at = path();
  need(program, {"create", at, "--regimes", kind.regimes, "--compression", kind.compression});
  if (kind.maxPackBytes > 0) {
    auto manifest = nlohmann::json::parse(readFile(path() / "archive.json"));
    manifest["maxPackBytes"] = kind.maxPackBytes;
    writeFileAtomically(path() / "archive.json", prettyJson(manifest));
  }
  need(program, {"policy", at, "--disposal", "manualApproval", "--add-rule",
                 "r:contract:participant=p1@example.com", "--reason", "r"});
  need(program, {"hold", at, "place", "--name", "Pfand", "--reason", "r", "--participant",
                 "p8@example.com"});
  if (kind.hasMail) need(program, {"import", at, mail / "old", "--class", "business"});
  need(program, {"verify", at, "--deep"});
  const std::string other = folder_ / "other";
  need(program, {"create", other});
  need(program, {"import", other, mail / "new", "--account", "elsewhere"});

  holdings_ = readHoldings(path());
  history_ = readHistory(path());
  names_ = {{"@old", mail / "old"}, {"@new", mail / "new"}, {"@other", other}};
  const auto catalog = SQLiteDatabase::reading(path() / "catalog.sqlite", "judge", false);
  names_["@hold"] = std::get<std::string>(*catalog->scalar("SELECT id FROM hold"));
  for (int i = 1; kind.hasMail && i <= kOldMails; ++i) {
    names_["@id" + std::to_string(i)] = std::to_string(
        catalog->count("SELECT id FROM message WHERE sha256 = ?", {sha256Hex(corpusMail(i))}));
  }
}

void Template::copyTo(const fs::path& place) const {
  fs::copy(path(), place, fs::copy_options::recursive);
  for (const auto& entry : fs::recursive_directory_iterator(path())) {
    if (entry.is_regular_file() && isImmutable(entry.path())) {
      setImmutable(place / entry.path().lexically_relative(path()));
    }
  }
}

std::vector<std::string> Template::command(const Scenario& scenario,
                                           const fs::path& archive) const {
  std::vector<std::string> words = scenario.words;
  for (std::string& word : words) {
    if (word == "@") word = archive;
    if (const auto name = names_.find(word); name != names_.end()) word = name->second;
  }
  return words;
}

Trials::Trials(const Scenario& scenario, const Template& archive)
    : scenario_(scenario), template_(archive) {
  const ScratchFolder folder;
  const fs::path place = folder / "a";
  template_.copyTo(place);
  const Program program(folder.path());
  const Outcome outcome = program.run(template_.command(scenario_, place), Fault{}, place);
  if (!outcome.succeeded()) {
    throw std::runtime_error(std::string(scenario.name) + ": " + outcome.text());
  }
  log_ = program.calls();
  after_ = readHoldings(place);
}

/// One trial: an archive on its way from the fault to its end.
class Trials::Trial {
 public:
  Trial(const Trials& trials, const Fault& fault)
      : scenario_(trials.scenario_),
        template_(trials.template_),
        before_(template_.holdings()),
        after_(trials.after_),
        fault_(fault),
        place_(folder_ / "a"),
        program_(folder_.path()) {
    template_.copyTo(place_);
  }

  Problems run() {
    const auto words = template_.command(scenario_, place_);
    judgeEnd(program_.run(words, fault_, place_));
    if (!problems_.empty()) return problems_;

    // A reader may be the first to come, and repairs nothing.
    if (fault_.seed % 2 == 0 && !scenario_.isOwnRepair) {
      const Outcome found = program_.run({"search", place_, corpusWord(2)});
      if (!found.succeeded()) problems_.push_back("search: " + found.text());
    }
    const Outcome repaired =
        program_.run(scenario_.isOwnRepair ? words : std::vector<std::string>{"seal", place_});
    if (!repaired.succeeded()) return {"repair: " + repaired.text()};
    const Holdings now = judgeState("repaired");
    judgeVerification("repaired");
    const bool isDone = now.facts == after_.facts;
    if (!scenario_.isRepeatable && !isDone && now.facts != before_.facts) {
      note("half done", differences(before_.facts, now.facts));
      return problems_;
    }
    if (scenario_.isRepeatable || !isDone) {
      const Outcome again = program_.run(words);
      // What is done may be refused when it is asked for again.
      if (!again.succeeded() && !isDone) problems_.push_back("again: " + again.text());
      note("again", differences(after_.facts, judgeState("again").facts));
    }
    judgeVerification("at the end");
    return problems_;
  }

 private:
  bool mayTear() const {
    return fault_.kind == "torn" || fault_.kind == "power" || fault_.kind == "short";
  }

  void note(const char* when, const Problems& problems) {
    for (const std::string& each : problems) problems_.push_back(std::string(when) + ": " + each);
  }

  void judgeEnd(const Outcome& outcome) {
    if (outcome.isHung ||
        (outcome.signal != 0 && (fault_.isError() || outcome.signal != SIGKILL))) {
      problems_.push_back("crashed: " + outcome.text());
    } else if (outcome.succeeded()) {
      // What is said to be done is done, by now and without help.
      note("said to be done", differences(after_.facts, readHoldings(place_).facts));
      note("said to be done", judgeSecrets(readHoldings(place_)));
    } else if (outcome.signal == 0 && outcome.err.find("error: ") == std::string::npos) {
      problems_.push_back("no reason given: " + outcome.text() + outcome.out);
    }
  }

  /// Everything that must hold whenever the archive is at rest.
  Holdings judgeState(const char* when) {
    Holdings now = readHoldings(place_);
    for (const std::string& digest : before_.messages) {
      if (!now.messages.contains(digest)) note(when, {"lost from the catalog: " + digest});
    }
    for (const std::string& digest : now.erased) {
      if (!after_.erased.contains(digest)) note(when, {"erased unasked: " + digest});
    }
    note(when, judgeMessages(place_));
    note(when, judgeChain(place_, mayTear()));
    note(when, judgeHistory(template_.history(), readHistory(place_)));
    note(when, judgeTidiness(place_));
    note(when, judgeSecrets(now));
    return now;
  }

  /// Of what is erased neither key nor word is left, and what had to be approved was before.
  Problems judgeSecrets(const Holdings& now) const {
    std::vector<Bytes> secrets;
    for (const auto& [owner, wrapped] : before_.keys) {
      if (!now.keys.contains(owner)) secrets.push_back(wrapped);
    }
    const bool isShredded = !secrets.empty();
    for (int i = 1; i <= kOldMails; ++i) {
      if (now.erased.contains(sha256Hex(corpusMail(i)))) secrets.push_back(corpusWord(i));
    }
    Problems problems;
    for (const std::string& found : textsInFiles(place_, secrets)) {
      problems.push_back("still there: " + printable(found));
    }
    const Bytes journal = readFile(place_ / "chain" / "journal.jsonl");
    if (isShredded && scenario_.approval != nullptr &&
        journal.find(scenario_.approval) == Bytes::npos) {
      problems.push_back("destroyed before it was approved");
    }
    return problems;
  }

  void judgeVerification(const std::string& when) {
    const Outcome outcome = program_.run({"verify", place_, "--deep"});
    if (outcome.signal != 0) problems_.push_back("verify " + when + ": " + outcome.text());
    auto failed = failedChecks(outcome.out);
    // A line torn by a crash stays where it is.
    if (mayTear()) failed.erase(check_names::kChain);
    // The dates of a new policy wait for the next command that has to do with it.
    if (when == "repaired" && scenario_.words.front() == "policy") {
      failed.erase(check_names::kHoldings);
    }
    for (const std::string& check : failed) {
      problems_.push_back("verify " + when + ": " + check + "\n" + outcome.out);
    }
  }

  const Scenario& scenario_;
  const Template& template_;
  const Holdings& before_;
  const Holdings& after_;
  const Fault& fault_;
  const ScratchFolder folder_;
  const fs::path place_;
  const Program program_;
  Problems problems_;
};

std::string Trials::call(long at) const {
  return at < 1 || at > calls() ? "" : log_[static_cast<std::size_t>(at - 1)];
}

Problems Trials::run(const Fault& fault) const { return Trial(*this, fault).run(); }

}  // namespace ambervane
