#ifndef AMBERVANE_STORE_LZFSE_MATCHES_H_
#define AMBERVANE_STORE_LZFSE_MATCHES_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/bytes.h"

namespace ambervane::lzfse {

/// Bytes that stand once more `distance` bytes before.
struct Match {
  std::uint32_t length = 0;  ///< 0: no match
  std::uint32_t distance = 0;
  int gain = 0;  ///< about how many bits shorter than the same bytes as literals
};

/// Finds earlier occurrences of what stands at a position, through chains of positions whose first
/// bytes have the same hash. Not thread-safe.
class MatchFinder {
 public:
  /// A match this long is taken without looking for a better one.
  static constexpr std::uint32_t kLongEnough = 128;

  /// `data` must outlive the finder and be below 4 GiB.
  explicit MatchFinder(BytesView data);

  /// Of the positions before `position`, makes those findable that are not yet.
  void insertUpTo(std::size_t position) noexcept;

  /// The match at `position` that gains most, if that is more than `floor` (0 or more) bits: either
  /// at `repeated` bytes back (0 for none), or among the last `tries` occurrences of the hash.
  Match find(std::size_t position, std::uint32_t repeated, int floor, int tries) const noexcept;

 private:
  std::size_t hash(std::size_t position) const noexcept;
  std::uint32_t commonLength(std::size_t position, std::size_t earlier) const noexcept;

  BytesView data_;
  std::size_t hashedEnd_;  ///< positions from here on have too few bytes for a hash
  std::size_t inserted_ = 0;
  int hashShift_;
  std::vector<std::uint32_t> newest_;    ///< by hash: a position + 1, or 0
  std::vector<std::uint32_t> previous_;  ///< by position: the next older of the hash, likewise
  std::size_t previousMask_;
};

}  // namespace ambervane::lzfse

#endif  // AMBERVANE_STORE_LZFSE_MATCHES_H_
