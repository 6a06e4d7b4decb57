#ifndef AMBERVANE_DOCTEXT_RECENT_DOCUMENTS_H_
#define AMBERVANE_DOCTEXT_RECENT_DOCUMENTS_H_

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "doctext/document_helper.h"

namespace ambervane {

/// What was read of the last documents, since one document often comes with many messages. The
/// oldest makes room for the newest. Any thread.
class RecentDocuments {
 public:
  /// `textBytes`: of all texts together; a longer text is not kept.
  RecentDocuments(std::size_t documents, std::size_t textBytes)
      : maximumDocuments_(documents), maximumBytes_(textBytes) {}

  std::optional<DocumentText> find(const std::string& name) const;
  /// `name` stands for the document's bytes and for how they were read.
  void keep(const std::string& name, const DocumentText& read);

 private:
  const std::size_t maximumDocuments_, maximumBytes_;
  mutable std::mutex mutex_;
  std::unordered_map<std::string, DocumentText> texts_;
  std::deque<std::string> names_;  ///< of `texts_`, the oldest first
  std::size_t bytes_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_RECENT_DOCUMENTS_H_
