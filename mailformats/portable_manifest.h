#ifndef AMBERVANE_MAILFORMATS_PORTABLE_MANIFEST_H_
#define AMBERVANE_MAILFORMATS_PORTABLE_MANIFEST_H_

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/bytes.h"

namespace ambervane {

/// What "reimport-manifest.json" of a portable export says about its messages.
struct PortableManifest {
  static constexpr const char* kFileName = "reimport-manifest.json";

  struct Entry {
    std::string file;    ///< below the export's root; not yet checked to stay there
    std::string folder;  ///< mailbox path, "/" between names
    std::optional<std::vector<std::string>> flags;  ///< IMAP spellings
    std::optional<double> internalDate;             ///< seconds since 1970
  };
  std::vector<Entry> messages;

  /// Hands out each entry in the memory of one. Returns false when `json` is damaged or lacks what
  /// a manifest must have; entries before the damage have been handed out then. May throw what
  /// `visit` throws.
  static bool read(BytesView json, const std::function<void(Entry&&)>& visit);
  /// All entries; absent where `read` fails.
  static std::optional<PortableManifest> decode(BytesView json);
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_PORTABLE_MANIFEST_H_
