#include <unistd.h>

#include <iostream>

#include "cli/commands.h"

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  ambervane::Console console{std::cout, std::cerr, ::isatty(STDERR_FILENO) == 1};
  return ambervane::runCommandLine({argv + 1, argv + argc}, console);
}
