#include "doctext/recent_documents.h"

namespace ambervane {

std::optional<DocumentText> RecentDocuments::find(const std::string& name) const {
  const std::lock_guard lock(mutex_);
  const auto known = texts_.find(name);
  if (known == texts_.end()) return std::nullopt;
  return known->second;
}

void RecentDocuments::keep(const std::string& name, const DocumentText& read) {
  const std::lock_guard lock(mutex_);
  if (read.text.size() > maximumBytes_ || !texts_.emplace(name, read).second) return;
  names_.push_back(name);
  bytes_ += read.text.size();
  while (bytes_ > maximumBytes_ || names_.size() > maximumDocuments_) {
    const auto oldest = texts_.find(names_.front());
    bytes_ -= oldest->second.text.size();
    texts_.erase(oldest);
    names_.pop_front();
  }
}

}  // namespace ambervane
