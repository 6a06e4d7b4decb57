#include "store/recovery_sidecars.h"

#include <algorithm>

#include "base/file.h"
#include "store/pack_store.h"

namespace ambervane {

RecoveryIndex& RecoverySidecars::of(std::int64_t packID) {
  const auto known = std::find_if(open_.begin(), open_.end(),
                                  [packID](const Entry& entry) { return entry.first == packID; });
  if (known != open_.end()) {
    open_.splice(open_.begin(), open_, known);
    return open_.front().second;
  }
  if (open_.size() >= kMostOpen) {
    open_.back().second.synchronize();
    open_.pop_back();
  }
  open_.emplace_front(packID, RecoveryIndex(packs_.packURL(packID)));
  return open_.front().second;
}

void RecoverySidecars::attempt(const std::function<void()>& action) {
  try {
    action();
  } catch (const FileError& error) {
    if (!failure_) failure_ = error.what();
  }
}

std::optional<std::string> RecoverySidecars::takeFailure() {
  if (!failure_ || told_) return std::nullopt;
  told_ = true;
  return failure_;
}

void RecoverySidecars::noteMessage(std::int64_t packID, const RecoveryIndex::Message& message) {
  attempt([&] { of(packID).appendMessage(message); });
}

void RecoverySidecars::noteBlob(std::int64_t packID, const RecoveryIndex::Blob& blob) {
  attempt([&] { of(packID).appendBlob(blob); });
}

void RecoverySidecars::synchronize() {
  for (Entry& entry : open_) attempt([&entry] { entry.second.synchronize(); });
}

}  // namespace ambervane
