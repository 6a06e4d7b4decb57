#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/json.h"
#include "mailformats/portable_manifest.h"

/// Reads the input as a manifest, and what is accepted once more as a document.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ambervane::BytesView json(reinterpret_cast<const char*>(data), size);
  const auto manifest = ambervane::PortableManifest::decode(json);
  if (!manifest) return 0;
  const auto document = nlohmann::json::parse(json);
  const auto& messages = document.at("messages");
  if (messages.size() != manifest->messages.size()) std::abort();
  for (std::size_t i = 0; i < messages.size(); ++i) {
    const auto& entry = manifest->messages[i];
    if (messages[i].at("file") != entry.file) std::abort();
    if (messages[i].at("folder") != entry.folder) std::abort();
  }
  return 0;
}
