#ifndef AMBERVANE_TESTS_FAULTS_PROGRAM_H_
#define AMBERVANE_TESTS_FAULTS_PROGRAM_H_

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace ambervane {

/// Lets scratch folders be made in memory where there is room for them and nobody has said
/// otherwise: flushing to a disk is what trials would spend their time on.
void preferMemory();

/// What happens to the program at one call that changes the archive's files; `fault_shim.cpp`
/// explains the kinds.
struct Fault {
  long at = 0;  ///< counted from 1; 0: nothing happens, calls are only counted
  std::string kind = "kill";
  bool sticky = false;
  std::uint64_t seed = 1;
  /// As the options that repeat it: "--at 17 --kind power --seed 3".
  std::string options() const;
  /// Whether the program goes on behind it.
  bool isError() const;
};

/// Every kind of fault; errors are numbers.
std::span<const std::string> faultKinds();

/// How a run of the program ended.
struct Outcome {
  int status = -1;      ///< its exit status; -1 when a signal ended it
  int signal = 0;       ///< 0 when it came to an end of its own
  bool isHung = false;  ///< it had to be killed because it did not end
  std::string out, err;
  bool succeeded() const { return status == 0; }
  /// Such as "exit 1: error: ...".
  std::string text() const;
};

/// Runs of the `ambervane` executable, each a process of its own. What they print goes through
/// files in `scratch`.
class Program {
 public:
  explicit Program(std::filesystem::path scratch) : scratch_(std::move(scratch)) {}
  Outcome run(const std::vector<std::string>& words) const { return start(words, {}); }
  /// With `fault` in what it does to the files below `watched`.
  Outcome run(const std::vector<std::string>& words, const Fault& fault,
              const std::filesystem::path& watched) const;
  /// The calls of the last run with a fault, one a line: number, call, file, bytes.
  std::vector<std::string> calls() const;
  /// Starts without waiting; `finish` waits.
  int launch(const std::vector<std::string>& words, const std::vector<std::string>& variables,
             const std::string& output) const;
  Outcome finish(int process, const std::string& output) const;

 private:
  Outcome start(const std::vector<std::string>& words,
                const std::vector<std::string>& variables) const {
    return finish(launch(words, variables, "run"), "run");
  }
  std::filesystem::path callLog() const { return scratch_ / "calls"; }

  std::filesystem::path scratch_;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_FAULTS_PROGRAM_H_
