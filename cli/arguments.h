#ifndef AMBERVANE_CLI_ARGUMENTS_H_
#define AMBERVANE_CLI_ARGUMENTS_H_

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ambervane {

/// The words of a command line. The grammar knows no option names: "--name=value" and "--name" in
/// front of a word that does not begin with "--" give a value, any other "--name" is a flag.
struct Arguments {
  std::string command;                  ///< the first positional word, or "help"
  std::vector<std::string> positional;  ///< those behind it
  std::map<std::string, std::string> options;
  std::map<std::string, std::vector<std::string>> multiOptions;
  std::set<std::string> flags;

  /// Reads the words behind the program's path.
  static Arguments parse(const std::vector<std::string>& words);
  std::optional<std::string> option(const std::string& name) const;
  /// Whether a switch is on, given as a flag or with a value.
  bool has(const std::string& name) const;
  friend bool operator==(const Arguments&, const Arguments&) = default;
};

}  // namespace ambervane

#endif  // AMBERVANE_CLI_ARGUMENTS_H_
