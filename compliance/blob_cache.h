#ifndef AMBERVANE_COMPLIANCE_BLOB_CACHE_H_
#define AMBERVANE_COMPLIANCE_BLOB_CACHE_H_

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

#include "base/bytes.h"

namespace ambervane {

/// Attachments as they stand in messages, the ones used last kept, so that a file a thousand
/// messages carry is not unpacked a thousand times. Safe from any thread.
class BlobCache {
 public:
  using Shared = std::shared_ptr<const Bytes>;
  explicit BlobCache(std::size_t capacity) : capacity_(capacity) {}

  /// The bytes under `hash`, as kept or as `fetch` gives them. Throws what `fetch` throws.
  Shared get(const std::string& hash, const std::function<Bytes()>& fetch);

 private:
  using Entry = std::pair<std::string, Shared>;
  const std::size_t capacity_;  ///< bytes
  std::mutex mutex_;
  std::size_t bytes_ = 0;
  std::list<Entry> entries_;  ///< most recently used first
  std::unordered_map<std::string, std::list<Entry>::iterator> index_;
};

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_BLOB_CACHE_H_
