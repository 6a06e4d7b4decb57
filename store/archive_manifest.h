#ifndef AMBERVANE_STORE_ARCHIVE_MANIFEST_H_
#define AMBERVANE_STORE_ARCHIVE_MANIFEST_H_

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/date.h"
#include "evidence/retention_policy.h"
#include "store/codec.h"

namespace ambervane {

/// The file `archive.json`, whose presence makes a folder an archive. Page:
/// docs/format/manifest.md. The values here are those of a new archive; `archiveID`, `name`,
/// `createdAt`, `createdBy`, `policy` and `compressionEffort` are for its maker to set.
struct ArchiveManifest {
  /// The format this build writes, and the newest `minimumReaderVersion` it understands.
  static constexpr int kFormatVersion = 3;
  static constexpr int kUnderstoodVersion = 3;

  int formatVersion = kFormatVersion;
  int minimumReaderVersion = 1;  ///< rises with what the records need
  std::string archiveID;         ///< a UUID
  std::string name;
  Date createdAt;  ///< whole seconds on disk
  std::string createdBy;
  RetentionPolicy policy;
  /// For people; nothing reads it.
  std::string compression = "per-record: deflate+dictionary, LZFSE, LZMA — smallest wins";
  CompressionEffort compressionEffort = CompressionEffort::balanced;
  std::int64_t attachmentExtractionThreshold = 4096;  ///< encoded bytes
  std::int64_t dictionaryTrainingSample = 2000;       ///< messages
  std::int64_t maxPackBytes = 1073741824;
  /// Members of the file that this build does not know, as one JSON object, or empty. They are
  /// written back, so that a newer build's values survive a rewrite by this one.
  std::string unknownMembers;

  /// Reads the file. A field that is missing gets its documented default, `now` among them. Throws
  /// ArchiveError (NotAnArchive) when it cannot be read, JsonError when it does not decode.
  static ArchiveManifest load(const std::filesystem::path& path, Date now);
  /// Replaces the file atomically. Throws FileError.
  void save(const std::filesystem::path& path) const;

  /// The decoding behind `load`; `file` names the text in a JsonError.
  static ArchiveManifest fromJson(std::string_view text, const std::string& file, Date now);
  std::string toJson() const;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_ARCHIVE_MANIFEST_H_
