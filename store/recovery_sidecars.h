#ifndef AMBERVANE_STORE_RECOVERY_SIDECARS_H_
#define AMBERVANE_STORE_RECOVERY_SIDECARS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <utility>

#include "store/recovery_index.h"

namespace ambervane {

class PackStore;

/// The sidecars being written: that of the current pack, and those of older packs whose messages
/// turn up in further mailboxes. A sidecar that cannot be written stops nothing: the message is
/// safe in its pack, but beyond a rebuild's reach, and `takeFailure` says so. Not thread-safe: they
/// belong to the committing thread.
class RecoverySidecars {
 public:
  /// `packs` must outlive the sidecars.
  explicit RecoverySidecars(const PackStore& packs) : packs_(packs) {}

  void noteMessage(std::int64_t packID, const RecoveryIndex::Message& message);
  void noteBlob(std::int64_t packID, const RecoveryIndex::Blob& blob);
  /// Makes every line written so far durable.
  void synchronize();
  /// The first failure of all, handed out once; those that follow are of a kind.
  std::optional<std::string> takeFailure();

 private:
  static constexpr std::size_t kMostOpen = 8;
  using Entry = std::pair<std::int64_t, RecoveryIndex>;
  RecoveryIndex& of(std::int64_t packID);
  /// Runs `action`, noting what the file system refuses.
  void attempt(const std::function<void()>& action);

  const PackStore& packs_;
  std::list<Entry> open_;  ///< most recently used first
  std::optional<std::string> failure_;
  bool told_ = false;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_RECOVERY_SIDECARS_H_
