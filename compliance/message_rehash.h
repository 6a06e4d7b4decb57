#ifndef AMBERVANE_COMPLIANCE_MESSAGE_REHASH_H_
#define AMBERVANE_COMPLIANCE_MESSAGE_REHASH_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "store/mail_archive.h"

namespace ambervane {

/// A message that can no longer be rebuilt as it came.
struct DamagedMessage {
  std::int64_t id = 0;
  std::string sha256;
  std::string reason;  ///< English
};

/// What re-reading every message gave.
struct RehashResult {
  std::int64_t checked = 0;
  std::int64_t failures = 0;
  /// Digests of sound messages whose Date field is not what the catalog holds as their date.
  std::vector<std::string> misdated;
};

struct RehashObserver {
  std::function<bool()> shouldCancel;                                     ///< may be empty
  std::function<void(std::int64_t checked, std::int64_t failures)> step;  ///< may be empty
  std::function<void(const DamagedMessage&)> damaged;                     ///< may be empty
};

/// Rebuilds every message that is not erased, from pack, keys, codecs and blobs, and compares it
/// with its digest. Messages are read in the order of their numbers, which is that of the packs;
/// unpacking and hashing take all processors, a solid block once. The observer is called on this
/// thread. Stops early when it says so. Memory: a few messages, blocks and shared attachments,
/// however many there are. Throws SQLiteError.
RehashResult rehashMessages(MailArchive& archive, const RehashObserver& observer);

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_MESSAGE_REHASH_H_
