#ifndef AMBERVANE_STORE_CATALOG_REBUILD_H_
#define AMBERVANE_STORE_CATALOG_REBUILD_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "store/mail_archive.h"

namespace ambervane {

struct RebuildProgress {
  std::int64_t packsDone = 0;
  std::int64_t packsTotal = 0;
  std::int64_t blobs = 0;
  std::int64_t messages = 0;
  std::int64_t skipped = 0;  ///< messages and blobs that could not be read
  std::int64_t holds = 0;
  std::int64_t smartFolders = 0;
  std::int64_t notes = 0;
  std::int64_t tags = 0;
  std::int64_t tagRules = 0;
  std::string note;                   ///< what else there is to say; may be empty
  std::vector<std::string> problems;  ///< why the first of those skipped could not be read
};

/// The name under which a rebuild started now keeps the catalog that is there.
std::string nameOfCatalogSetAside(const MailArchive& archive);

/// Makes the catalog anew from pack files, sidecars, dictionaries, keys and journal, and installs
/// it; the one before is kept as `keptAs`. What cannot be read is counted and passed over. The new
/// catalog grows in a file of its own: what is thrown or killed on the way leaves the archive as it
/// was, and the same call can be made again. After a throw the archive must be closed. `progress`
/// may be empty. Throws ArchiveError (ReadOnly), FileError, SQLiteError, JournalError.
RebuildProgress rebuildCatalog(MailArchive& archive, const std::string& keptAs,
                               const std::function<void(const RebuildProgress&)>& progress);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_CATALOG_REBUILD_H_
