#include "cli/arguments.h"

#include <string_view>

namespace ambervane {

Arguments Arguments::parse(const std::vector<std::string>& words) {
  Arguments arguments;
  std::vector<std::string> positional;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (!words[i].starts_with("--")) {
      positional.push_back(words[i]);
      continue;
    }
    const std::string_view name = std::string_view(words[i]).substr(2);
    // A value may be a secret: no copy of it is left anywhere but in the two maps.
    const auto take = [&arguments](std::string_view key, std::string_view value) {
      arguments.options[std::string(key)] = value;
      arguments.multiOptions[std::string(key)].emplace_back(value);
    };
    if (const std::size_t equals = name.find('='); equals != std::string_view::npos) {
      take(name.substr(0, equals), name.substr(equals + 1));
    } else if (i + 1 < words.size() && !words[i + 1].starts_with("--")) {
      take(name, words[++i]);
    } else {
      arguments.flags.emplace(name);
    }
  }
  if (positional.empty()) {
    arguments.command = "help";
  } else {
    arguments.command = positional.front();
    arguments.positional.assign(positional.begin() + 1, positional.end());
  }
  return arguments;
}

std::optional<std::string> Arguments::option(const std::string& name) const {
  const auto found = options.find(name);
  return found == options.end() ? std::nullopt : std::optional(found->second);
}

bool Arguments::has(const std::string& name) const {
  return flags.contains(name) || options.contains(name);
}

}  // namespace ambervane
