#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz/fuzz_input.h"
#include "mailformats/container.h"
#include "mailformats/container_reader.h"
#include "mailformats/import_error.h"

/// Any bytes as a gzip or ZIP file: no name leads out of it, and no bomb goes off.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  namespace fs = std::filesystem;
  static const fs::path file =
      fs::temp_directory_path() / ("container_fuzz_" + std::to_string(::getpid()) + ".zip");
  std::ofstream(file, std::ios::binary | std::ios::trunc) << fuzzInput(data, size);
  std::size_t unpacked = 0;
  try {
    ContainerReader(file).forEachMessage(
        [&](SourceMessage&& message) {
          unpacked += message.raw.size();
          requireUtf8(message.folderPath);
          requireUtf8(message.originPath.value());
          requireUtf8(message.sourceIdentifier.value());
          require(!message.folderPath.empty());
          for (const std::string_view name : split(message.folderPath, '/')) {
            require(!name.empty() && name != "." && name != "..");
          }
          return true;
        },
        requireUtf8);
  } catch (const ImportError& error) {
    requireUtf8(error.message().text());
  }
  require(unpacked <= kFreeUnpackedBytes + kMaxExpansion * size);
  fs::remove(file);
  return 0;
}
