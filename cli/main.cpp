#include <unistd.h>

#include <iostream>

#include "cli/commands.h"
#include "cli/server_options.h"

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  ambervane::Console console{std::cout, std::cerr, ::isatty(STDERR_FILENO) == 1};
  std::vector<std::string> words(argv + 1, argv + argc);
  // Whoever lists the processes of this machine sees their arguments.
  ambervane::eraseSecrets({argv + 1, argv + argc});
  const int status = ambervane::runCommandLine(words, console);
  std::vector<char*> ours;
  for (std::string& word : words) ours.push_back(word.data());
  ambervane::eraseSecrets(ours);
  return status;
}
