#ifndef AMBERVANE_STORE_MERGE_SOURCE_H_
#define AMBERVANE_STORE_MERGE_SOURCE_H_

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "mailformats/message_importer.h"
#include "store/catalog_annotations.h"
#include "store/mail_archive.h"

namespace ambervane {

/// A message of an archive without its bytes, with all that belongs to it.
struct TravellingMessage {
  /// That it lies, or lay, in a mailbox.
  struct Filing {
    std::int64_t folderID = 0;  ///< in the archive it comes from
    std::optional<std::int64_t> uid;
    std::string flags;
    std::optional<Date> removedAt;
  };
  std::int64_t id = 0;
  std::string digest, retentionClass;
  std::vector<Filing> filings;   ///< past ones included, in the order in which they came about
  std::vector<ArchiveTag> tags;  ///< name and colour
  std::vector<MessageNote> notes;
  std::vector<std::string> holds;  ///< identifiers
};

/// Reads every message of an archive that is not erased, in the order of its rows, one that cannot
/// be read included; nothing is written. The messages themselves go to the pipeline, what belongs
/// to them waits for `take`.
class TravellingMail final : public MessageImporter {
 public:
  /// `source` must outlive it, and is this object's while it is read.
  explicit TravellingMail(MailArchive& source) : source_(source) {}

  std::string displayName() const override { return source_.manifest().name; }
  std::optional<std::int64_t> estimatedCount() const override;
  void forEachMessage(const Body& body, const Unreadable& unreadable) override;
  /// To be called once for each item that the pipeline hands out, in its order, from any thread.
  TravellingMessage take();

 private:
  TravellingMessage describe(const MessageRow& row);
  void put(TravellingMessage message);

  MailArchive& source_;
  std::mutex mutex_;  ///< guards what follows
  std::deque<TravellingMessage> waiting_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_MERGE_SOURCE_H_
