#ifndef AMBERVANE_SEARCH_SMART_FOLDERS_H_
#define AMBERVANE_SEARCH_SMART_FOLDERS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "query/query_builder.h"
#include "query/smart_folder.h"
#include "store/catalog_rows.h"
#include "store/mail_archive.h"

namespace ambervane {

/// Saves a smart folder, or replaces the one of its identifier. Throws SmartFolderError when the
/// name is blank or there is nothing in the filter that can be asked, ArchiveError (ReadOnly),
/// SQLiteError, FileError; nothing has changed then.
void saveSmartFolder(MailArchive& archive, const SmartFolder& folder);
/// False when there is no such folder. Throws as `saveSmartFolder`.
bool deleteSmartFolder(MailArchive& archive, const std::string& id);

/// Counts what a filter finds among messages that are not erased, up to `cap`; 0 when there is
/// nothing in it that can be asked. Throws SQLiteError.
SmartFolderCount smartFolderCount(MailArchive& archive, const FilterNode& filter,
                                  std::int64_t cap = kCountCap);

/// Which stored counts will do.
enum class SmartFolderCounting {
  current,     ///< one made since the archive changed last
  stale,       ///< any, however old
  refreshing,  ///< none: count anew
};
/// The stored count of a folder, or a new one, which is stored where the archive can be written. A
/// folder that asks for the last so many days changes by itself, so its stored count is always
/// stale. Throws SQLiteError.
SmartFolderCount smartFolderCount(MailArchive& archive, const SmartFolder& folder,
                                  SmartFolderCounting counting = SmartFolderCounting::current);
/// Counts the folders whose stored count is not current; returns how many those were.
std::int64_t refreshStaleSmartFolderCounts(MailArchive& archive,
                                           const std::vector<SmartFolder>& folders);

/// How many of the messages that a filter finds lie in each mailbox now, most first; mailboxes
/// without any are left out. Throws SQLiteError.
std::vector<FolderCount> mailboxBreakdown(MailArchive& archive, const FilterNode& filter);

}  // namespace ambervane

#endif  // AMBERVANE_SEARCH_SMART_FOLDERS_H_
