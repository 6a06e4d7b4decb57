#ifndef AMBERVANE_STORE_ARCHIVE_MERGE_H_
#define AMBERVANE_STORE_ARCHIVE_MERGE_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/localized_message.h"
#include "store/mail_archive.h"

namespace ambervane {

class MergeError final : public TranslatableError {
 public:
  enum class Reason { sameArchive };
  explicit MergeError(Reason reason) : reason_(reason) {}
  Reason reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// What a merge has brought; of what was there before nothing is counted but the duplicates.
struct MergeOutcome {
  std::int64_t messages = 0;
  std::int64_t duplicates = 0;
  std::int64_t failed = 0;
  std::int64_t accounts = 0;  ///< of the source, whether new here or made by an earlier merge
  std::int64_t holds = 0;
  std::int64_t heldMessages = 0;  ///< that came under holds of the source, each counted per hold
  std::int64_t tags = 0;          ///< taken on by messages, each counted per message
  std::int64_t notes = 0;
  std::optional<std::filesystem::path> evidencePath;
  std::string sourceArchiveID;
  std::string sourceChainHead;
  std::vector<std::string> failures;  ///< the first messages that failed, for people
  bool cancelled = false;
};

using MergeProgress = std::function<void(std::int64_t done, std::int64_t total)>;

/// Takes all mail of `source` in by the road of any mail, with its mailboxes, classes, tags, notes
/// and holds, and keeps the source's chain beside the target's own. Nothing is written into the
/// source. Holds come first, so that no message is ever here without its protection. What an
/// earlier merge of the same source brought is found and not doubled, so one that was broken off is
/// run again. `shouldCancel` is asked from another thread; when it says yes, what has been read is
/// committed and the run ends in order. Throws ArchiveError (ReadOnly, NotEnoughSpace), MergeError
/// and JsonError (a hold of the source that cannot be read) before anything is written, FileError,
/// SQLiteError; everything up to the group of messages before stays.
MergeOutcome mergeArchive(MailArchive& target, MailArchive& source, const std::string& by,
                          const MergeProgress& progress = nullptr,
                          const std::function<bool()>& shouldCancel = nullptr);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_ARCHIVE_MERGE_H_
