#ifndef AMBERVANE_STORE_REBUILD_RUN_H_
#define AMBERVANE_STORE_REBUILD_RUN_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "store/catalog_rebuild.h"
#include "store/rebuilt_message.h"
#include "store/recovery_index.h"

namespace ambervane {

/// Texts of which there are few, as numbers.
class TextNumbers {
 public:
  std::uint32_t numberOf(std::string_view text);
  const std::string& text(std::uint32_t number) const { return texts_[number]; }

 private:
  std::map<std::string, std::uint32_t, std::less<>> numbers_;
  std::vector<std::string> texts_;
};

/// A message line of a sidecar, small. Texts are numbers for `RebuildRun::texts`.
struct SidecarLine {
  RawDigest digest{};
  RecordPlace place;
  std::optional<std::int64_t> uid;
  std::optional<Date> internalDate;
  std::uint32_t folder = 0, account = 0, flags = 0, ofClass = 0;
};

/// What the steps of a rebuild share: the catalog being filled, and how far it is.
class RebuildRun {
 public:
  using Report = std::function<void(const RebuildProgress&)>;
  /// All must outlive the run.
  RebuildRun(MailArchive& archive, const JournalArrivals& arrivals, const Report& report);

  MailArchive& archive() noexcept { return archive_; }
  const JournalArrivals& arrivals() const noexcept { return arrivals_; }
  MessageRebuilder& rebuilder() noexcept { return rebuilder_; }
  RebuildProgress& progress() noexcept { return progress_; }
  void report() const {
    if (report_) report_(progress_);
  }
  TextNumbers& texts() noexcept { return texts_; }
  /// Keeps the first of them; they are counted elsewhere.
  void noteProblem(std::int64_t packID, const std::string& text);

  /// Writes the rows of a message that has none; false when its number has been given to another.
  /// An empty `ofClass` leaves the class to the journal and the policy.
  bool store(RebuiltMessage& message, const std::string& ofClass);
  /// Files a message that is there in the mailbox of a line.
  void file(const SidecarLine& line);
  void file(const std::string& digest, const std::string& account, const std::string& folder,
            std::optional<std::int64_t> uid, const std::string& flags);
  /// Commits what has been written when there is enough of it.
  void commitNowAndThen();
  /// Counts what is read of packs, and now and then lets go of the memory it takes up.
  void noteRead(std::size_t bytes);

 private:
  std::vector<StoredAttachment> attachmentsOf(const PreparedMessage& message);
  std::int64_t folderID(const std::string& account, const std::string& folder);

  MailArchive& archive_;
  Catalog& catalog_;
  const JournalArrivals& arrivals_;
  const Report& report_;
  MessageRebuilder rebuilder_;
  RebuildProgress progress_;
  TextNumbers texts_;
  std::map<std::string, std::int64_t> accounts_;
  std::map<std::pair<std::int64_t, std::string>, std::int64_t> folders_;
  std::size_t uncommitted_ = 0;
  std::size_t bytesRead_ = 0;  ///< since memory was let go
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_REBUILD_RUN_H_
