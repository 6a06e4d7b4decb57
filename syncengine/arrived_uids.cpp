#include "syncengine/arrived_uids.h"

#include <algorithm>
#include <utility>

namespace ambervane {

ArrivedUIDs::ArrivedUIDs(std::vector<std::int64_t> asked, std::size_t batchSize)
    : asked_(std::move(asked)),
      batchSize_(std::max<std::size_t>(1, batchSize)),
      arrived_(asked_.size(), false) {}

bool ArrivedUIDs::arrive(std::int64_t uid) {
  const auto found = std::lower_bound(asked_.begin(), asked_.end(), uid);
  if (found == asked_.end() || *found != uid) return false;
  const auto index = static_cast<std::size_t>(found - asked_.begin());
  if (arrived_[index]) return false;
  arrived_[index] = true;
  answered_ = std::max(answered_, std::min(asked_.size(), (index / batchSize_ + 1) * batchSize_));
  return true;
}

std::vector<std::int64_t> ArrivedUIDs::missingBelow(std::size_t end) {
  std::vector<std::int64_t> missing;
  for (; named_ < end; ++named_) {
    if (!arrived_[named_]) missing.push_back(asked_[named_]);
  }
  return missing;
}

}  // namespace ambervane
