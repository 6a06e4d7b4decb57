#include "compliance/blob_cache.h"

namespace ambervane {

BlobCache::Shared BlobCache::get(const std::string& hash, const std::function<Bytes()>& fetch) {
  {
    const std::lock_guard lock(mutex_);
    if (const auto known = index_.find(hash); known != index_.end()) {
      entries_.splice(entries_.begin(), entries_, known->second);
      return entries_.front().second;
    }
  }
  // Outside the lock: two threads may fetch the same, which costs less than waiting.
  auto bytes = std::make_shared<const Bytes>(fetch());
  const std::lock_guard lock(mutex_);
  if (bytes->size() > capacity_ || index_.contains(hash)) return bytes;
  bytes_ += bytes->size();
  entries_.emplace_front(hash, bytes);
  index_.emplace(hash, entries_.begin());
  while (bytes_ > capacity_) {
    bytes_ -= entries_.back().second->size();
    index_.erase(entries_.back().first);
    entries_.pop_back();
  }
  return bytes;
}

}  // namespace ambervane
