#include "store/recovery_sidecars.h"

#include <algorithm>

#include "base/file.h"
#include "store/pack_store.h"

namespace ambervane {

RecoveryIndex* RecoverySidecars::of(std::int64_t packID) {
  const auto known = std::find_if(open_.begin(), open_.end(),
                                  [packID](const auto& entry) { return entry.first == packID; });
  if (known != open_.end()) {
    open_.splice(open_.begin(), open_, known);
    return &open_.front().second;
  }
  if (open_.size() >= kMostOpen) {
    open_.back().second.synchronize();
    open_.pop_back();
  }
  try {
    open_.emplace_front(packID, RecoveryIndex(packs_.packURL(packID)));
    return &open_.front().second;
  } catch (const FileError&) {
    return nullptr;
  }
}

void RecoverySidecars::synchronize() {
  for (auto& [packID, index] : open_) index.synchronize();
}

}  // namespace ambervane
