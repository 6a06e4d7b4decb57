#ifndef AMBERVANE_MAILFORMATS_PORTABLE_MANIFEST_H_
#define AMBERVANE_MAILFORMATS_PORTABLE_MANIFEST_H_

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

  /// Absent when `json` is damaged or lacks what a manifest must have.
  static std::optional<PortableManifest> decode(BytesView json);
};

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_PORTABLE_MANIFEST_H_
