#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string_view>
#include <vector>

#include "bench/inputs.h"

/// Google Benchmark's options, and --archive=<folder>: the archive whose messages
/// "reassembly/given" reads, in place of none.
int main(int argc, char** argv) {
  constexpr std::string_view kArchive = "--archive=";
  std::vector<char*> rest;
  for (char* word : std::vector<char*>(argv, argv + argc)) {
    if (std::string_view(word).starts_with(kArchive)) {
      ambervane::bench::givenArchive() = std::string_view(word).substr(kArchive.size());
    } else {
      rest.push_back(word);
    }
  }
  ambervane::bench::registerCodecCases();
  ambervane::bench::registerArchiveCases();
  int count = static_cast<int>(rest.size());
  rest.push_back(nullptr);
  benchmark::Initialize(&count, rest.data());
  if (benchmark::ReportUnrecognizedArguments(count, rest.data())) return EXIT_FAILURE;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return EXIT_SUCCESS;
}
