#ifndef AMBERVANE_STORE_CONTENT_ERASURE_H_
#define AMBERVANE_STORE_CONTENT_ERASURE_H_

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>

#include "store/mail_archive.h"

namespace ambervane {

/// What an erasure has taken away.
struct ErasedContent {
  std::int64_t messages = 0;
  std::int64_t attachmentKeys = 0;  ///< of attachments that no other message needs
  /// False when another process was reading an older state of the catalog: then words of what was
  /// erased may stand in its log until the next opening for writing empties it.
  bool isForgotten = true;
};

/// Told of each message while the change of the catalog that blanks it is still open, so that what
/// it puts into the journal is kept with it.
using ErasureRecorder =
    std::function<void(std::int64_t id, const std::string& sha256, std::int64_t attachmentKeys)>;

/// What the journal says of one erasure, as details of `messageErased` for the message's digest.
std::map<std::string, std::string> erasureDetails(std::int64_t id, const std::string& reason,
                                                  const std::string& requester,
                                                  std::int64_t attachmentKeys);

/// Whether destroying keys makes a message unreadable: its record and its attachments are
/// encrypted. False for one that is not there.
bool canShred(MailArchive& archive, std::int64_t id);

/// Erases messages for good: destroys their keys first, then blanks their rows, takes their words
/// out of the index and gives back their attachments in one transaction, then destroys the keys of
/// attachments nobody needs any more, and last makes the catalog's files forget. What a crash
/// interrupts, the next opening for writing completes. A message that was erased before gets the
/// new reason and nothing else.
///
/// Whether the messages may be erased (holds, retention, `canShred`) is the caller's to decide, and
/// so are approval, journal and seal. One call for a whole list: the last step takes as long as the
/// index is large. An id that is not in the catalog is passed over. Throws ArchiveError (ReadOnly),
/// SQLiteError, FileError; what was erased until then stays erased.
ErasedContent shredContent(MailArchive& archive, std::span<const std::int64_t> ids,
                           const std::string& reason, const std::string& requester,
                           const ErasureRecorder& record = {});

/// Has `completeErasures` look for what an erasure may have left undone.
void noteUnfinishedErasure(MailArchive& archive);
/// Completes what a crash has interrupted: an erasure is unfinished where the key database knows of
/// it and the row is not blanked, or while the catalog's meta value "unfinished_erasure" is set.
/// Journals each message so completed. Returns whether there was any. Throws as `shredContent`.
bool completeErasures(MailArchive& archive);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_CONTENT_ERASURE_H_
