#ifndef AMBERVANE_STORE_RECORDED_CHANGE_H_
#define AMBERVANE_STORE_RECORDED_CHANGE_H_

#include <cstdint>

#include "store/mail_archive.h"

namespace ambervane {

/// A change of the catalog and the journal entries that tell of it, kept whole or not at all: the
/// entries are durable before the rows, with one flush for all of them. Inside a batch that is open
/// already it is part of that batch. Unless `finish` has returned, destruction takes the rows back
/// and the journal says so.
class RecordedChange {
 public:
  /// Throws ArchiveError (ReadOnly), SQLiteError.
  explicit RecordedChange(MailArchive& archive);
  ~RecordedChange();
  RecordedChange(const RecordedChange&) = delete;
  RecordedChange& operator=(const RecordedChange&) = delete;

  /// Throws FileError, SQLiteError; nothing is in the catalog then.
  void finish();

  /// Whether the journal's entry of this number stands behind the last change that was kept: what
  /// it tells of was not kept, if it is a change at all. False where the catalog cannot tell.
  static bool isKnownUnkept(MailArchive& archive, std::int64_t entry);

 private:
  MailArchive& archive_;
  std::int64_t entriesBefore_ = 0;
  bool isNested_ = false;
  bool finished_ = false;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_RECORDED_CHANGE_H_
