#ifndef AMBERVANE_TESTS_FAULTS_SCENARIOS_H_
#define AMBERVANE_TESTS_FAULTS_SCENARIOS_H_

#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "tests/faults/evidence.h"
#include "tests/faults/program.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {

/// An archive as it stands before a command, made once and copied for each trial.
struct Kind {
  const char* name;
  const char* regimes;
  const char* compression = "balanced";
  bool hasMail = true;
  long maxPackBytes = 0;  ///< 0: the usual limit
};

/// One command, and what may be expected of it. In `words` stand "@" for the archive, "@old" and
/// "@new" for folders of mail (two messages are in both), "@other" for an archive of the new ones,
/// "@id3" for the identifier of message 3 of the old ones, "@hold" for the hold that the archive
/// has.
struct Scenario {
  const char* name;
  const char* kind;
  std::vector<std::string> words;
  /// Running it once more after its end changes nothing.
  bool isRepeatable = true;
  /// An entry of the journal that must stand before any key is gone.
  const char* approval = nullptr;
  /// What its interruption leaves, the command itself has to repair.
  bool isOwnRepair = false;
};

std::span<const Scenario> allScenarios();

/// An archive of one kind at rest, with all that is known of it.
class Template {
 public:
  Template(const Kind& kind, const std::filesystem::path& mail);
  std::filesystem::path path() const { return folder_ / "a"; }
  /// A copy to be hurt, write protection included.
  void copyTo(const std::filesystem::path& place) const;
  std::vector<std::string> command(const Scenario& scenario,
                                   const std::filesystem::path& archive) const;
  const Holdings& holdings() const { return holdings_; }
  const std::map<std::string, Bytes>& history() const { return history_; }

 private:
  ScratchFolder folder_;
  std::filesystem::path mail_;
  Holdings holdings_;
  std::map<std::string, Bytes> history_;
  std::map<std::string, std::string> names_;  ///< what "@..." stands for
};

/// Message `number` of the corpus, with a word of its own ("geheim17x") in each part that an index
/// takes words from.
Bytes corpusMail(int number);
std::string corpusWord(int number);
/// Messages `first` to `last`, a file each.
void writeCorpus(const std::filesystem::path& folder, int first, int last);

/// One scenario: how the archive stood before, how it stands after an undisturbed run, and how many
/// calls that run made.
class Trials {
 public:
  Trials(const Scenario& scenario, const Template& archive);
  std::string name() const { return scenario_.name; }
  long calls() const { return static_cast<long>(log_.size()); }
  /// Number, call, file and size of one call of the undisturbed run; empty behind the last.
  std::string call(long at) const;
  /// Runs the command with `fault` in it and judges what is left, then has the archive repaired,
  /// the command done, and judges that. Empty: all as it should be.
  Problems run(const Fault& fault) const;

 private:
  class Trial;

  const Scenario& scenario_;
  const Template& template_;
  Holdings after_;
  std::vector<std::string> log_;
};

/// The templates of all kinds, each made when it is first asked for.
class Templates {
 public:
  Templates();
  const Template& of(const std::string& kind);
  std::filesystem::path mail() const { return folder_.path(); }

 private:
  ScratchFolder folder_;
  std::map<std::string, std::unique_ptr<Template>> known_;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_FAULTS_SCENARIOS_H_
