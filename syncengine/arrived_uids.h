#ifndef AMBERVANE_SYNCENGINE_ARRIVED_UIDS_H_
#define AMBERVANE_SYNCENGINE_ARRIVED_UIDS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ambervane {

/// Keeps account of which messages asked for have arrived. Pure; not thread-safe.
class ArrivedUIDs {
 public:
  /// `asked`, ascending and each once, is fetched in runs of `batchSize`.
  ArrivedUIDs(std::vector<std::int64_t> asked, std::size_t batchSize);

  /// True when `uid` was asked for and arrives for the first time.
  bool arrive(std::int64_t uid);
  /// Those of the batches up to the furthest one that anything has arrived of which have not come
  /// and were not named before.
  std::vector<std::int64_t> missingSoFar() { return missingBelow(answered_); }
  /// As `missingSoFar`, of all batches.
  std::vector<std::int64_t> missingAtEnd() { return missingBelow(asked_.size()); }

 private:
  std::vector<std::int64_t> missingBelow(std::size_t end);

  const std::vector<std::int64_t> asked_;
  const std::size_t batchSize_;
  std::vector<bool> arrived_;  ///< beside `asked_`
  std::size_t answered_ = 0;   ///< end of the furthest batch that anything has arrived of
  std::size_t named_ = 0;      ///< what is missing before this has been named
};

}  // namespace ambervane

#endif  // AMBERVANE_SYNCENGINE_ARRIVED_UIDS_H_
