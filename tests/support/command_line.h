#ifndef AMBERVANE_TESTS_SUPPORT_COMMAND_LINE_H_
#define AMBERVANE_TESTS_SUPPORT_COMMAND_LINE_H_

#include <sstream>
#include <string>
#include <vector>

#include "cli/commands.h"

namespace ambervane {

/// What a command line came to.
struct CommandResult {
  int status;
  std::string out, err;
};

/// Runs a command line in this process; `terminal` says that somebody watches its progress.
inline CommandResult runCommand(const std::vector<std::string>& words, bool terminal = false) {
  std::ostringstream out;
  std::ostringstream err;
  Console console{out, err, terminal};
  const int status = runCommandLine(words, console);
  return {status, out.str(), err.str()};
}

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_COMMAND_LINE_H_
