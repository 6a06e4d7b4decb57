#ifndef AMBERVANE_STORE_RECOVERY_SIDECARS_H_
#define AMBERVANE_STORE_RECOVERY_SIDECARS_H_

#include <cstddef>
#include <cstdint>
#include <list>
#include <utility>

#include "store/recovery_index.h"

namespace ambervane {

class PackStore;

/// The sidecars being written: that of the current pack, and those of older packs whose messages
/// turn up in further mailboxes. Not thread-safe: they belong to the committing thread.
class RecoverySidecars {
 public:
  /// `packs` must outlive the sidecars.
  explicit RecoverySidecars(const PackStore& packs) : packs_(packs) {}

  /// The open sidecar of `packID`, opened on first use. Null when it cannot be opened: the message
  /// is safe in the pack, but beyond a rebuild's reach.
  RecoveryIndex* of(std::int64_t packID);
  /// Makes every line written so far durable. Throws FileError.
  void synchronize();

 private:
  static constexpr std::size_t kMostOpen = 8;
  const PackStore& packs_;
  std::list<std::pair<std::int64_t, RecoveryIndex>> open_;  ///< most recently used first
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_RECOVERY_SIDECARS_H_
