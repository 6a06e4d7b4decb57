#ifndef AMBERVANE_STORE_INGEST_H_
#define AMBERVANE_STORE_INGEST_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "mailformats/message_importer.h"
#include "store/commit.h"
#include "store/mail_archive.h"
#include "store/throughput_meter.h"

namespace ambervane {

struct IngestOptions {
  std::string accountName;
  std::string accountKind;  ///< the kind of source, such as "mbox"
  std::optional<std::string> host, username, sourcePath;
  std::optional<RetentionClass> retentionClass;  ///< absent: the policy classifies
  bool archivesFilesThatAreNotMail = false;
};

struct IngestSummary {
  std::int64_t added = 0;
  std::int64_t duplicates = 0;
  std::int64_t failed = 0;
  std::int64_t notMail = 0;
  std::int64_t unreadableAttachments = 0;  ///< stored, but their text is not in the index
  std::int64_t bytesIn = 0;                ///< raw bytes of the messages added
  std::int64_t bytesOut = 0;               ///< what the packs have grown by
  std::vector<std::string> errors;         ///< the first of all that went wrong, for people
  std::vector<std::string> failures;       ///< the first messages that failed
  ThroughputMeter throughput;
  bool cancelled = false;

  /// Messages looked at, whatever became of them.
  std::int64_t examined() const noexcept { return added + duplicates + failed + notMail; }
};

/// Called after each message with the state of things and the folder it went to.
using IngestProgress = std::function<void(const IngestSummary&, const std::string& folder)>;

/// Takes a whole source in, in batches, and seals. A message's failure is counted; what concerns
/// the archive or the source as a whole is thrown, and everything up to the batch before stays.
/// `shouldCancel` is asked from another thread; when it says yes, what has been read is committed
/// and the run ends in order. Throws ArchiveError (ReadOnly).
IngestSummary ingestAll(MailArchive& archive, MessageImporter& importer,
                        const IngestOptions& options, const std::function<bool()>& shouldCancel,
                        const IngestProgress& progress);

/// Throws ArchiveError (NotEnoughSpace) when the archive's volume has less room than `source` (a
/// file or a folder) takes plus a reserve. `label` says what was about to be done.
void requireRoomToAdd(const MailArchive& archive, const std::filesystem::path& source,
                      const std::string& label);
/// The same for an archive that is to be made in `folder`.
void requireRoomAt(const std::filesystem::path& folder, const std::filesystem::path& source,
                   const std::string& label);
/// The same where nobody knows beforehand how much will come: the reserve must be there.
void requireRoomToAdd(const MailArchive& archive, const std::string& label);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_INGEST_H_
