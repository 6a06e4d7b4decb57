#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/text.h"
#include "mailformats/import_error.h"
#include "mailformats/source_detector.h"

namespace {

namespace fs = std::filesystem;
using namespace ambervane;

constexpr std::size_t kMaxFiles = 24;
constexpr std::size_t kMaxPath = 120;

bool isHarmless(std::string_view path) {
  if (path.empty() || path.size() > kMaxPath || path.find('\0') != path.npos) return false;
  for (const std::string_view name : split(path, '/')) {
    if (name.empty() || name == "." || name == "..") return false;
  }
  return true;
}

/// Detects what lies at `path` and reads it all.
void readSource(const fs::path& path, std::size_t bytes) {
  try {
    std::size_t handedOut = 0;
    SourceDetector::importer(path, SourceDetector::detect(path))
        ->forEachMessage(
            [&](SourceMessage&& message) {
              if (!isValidUtf8(message.folderPath)) std::abort();
              if (!message.originPath || !message.sourceIdentifier) std::abort();
              handedOut += message.raw.size();
              return true;
            },
            [](const std::string& item) {
              if (!isValidUtf8(item)) std::abort();
            });
    // A manifest and a packed file may name or hold the same bytes more than once.
    if (handedOut > 2000 * bytes) std::abort();
  } catch (const ImportError&) {
  }
}

}  // namespace

/// Makes a folder of the input - files divided by the byte 1, each with its path on the first line
/// - and reads it as whatever kind of source it turns out to be; so is its first file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const fs::path root = fs::temp_directory_path() / ("source_fuzz_" + std::to_string(::getpid()));
  fs::remove_all(root);
  fs::create_directories(root);
  fs::path first;
  std::size_t count = 0;
  for (const std::string_view file : split(input, '\1')) {
    const std::size_t line = std::min(file.find('\n'), file.size());
    const std::string_view path = file.substr(0, line);
    if (!isHarmless(path) || ++count > kMaxFiles) continue;
    std::error_code ignored;
    const fs::path whole = root / path;
    fs::create_directories(whole.parent_path(), ignored);
    std::ofstream(whole, std::ios::binary) << file.substr(std::min(line + 1, file.size()));
    if (first.empty()) first = whole;
  }
  readSource(root, size);
  if (!first.empty()) readSource(first, size);
  SourceDetector::accessProblem(root);
  fs::remove_all(root);
  return 0;
}
