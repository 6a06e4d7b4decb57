#ifndef AMBERVANE_SEARCH_SEARCH_INDEX_H_
#define AMBERVANE_SEARCH_SEARCH_INDEX_H_

#include <cstdint>
#include <functional>

#include "store/mail_archive.h"

namespace ambervane {

struct ReindexSummary {
  std::int64_t messages = 0;    ///< looked at
  std::int64_t unreadable = 0;  ///< of these, left out of the index
};

/// Builds the full-text index anew from the messages themselves; until that is done readers see the
/// old one, and a failure leaves it in place. Does nothing where there is no full text or nothing
/// can be written. `progress` may be empty. Throws SQLiteError, JournalError, FileError.
ReindexSummary rebuildSearchIndex(
    MailArchive& archive,
    const std::function<void(std::int64_t done, std::int64_t total)>& progress);

}  // namespace ambervane

#endif  // AMBERVANE_SEARCH_SEARCH_INDEX_H_
