#ifndef AMBERVANE_STORE_ATTACHMENT_INDEX_TEXT_H_
#define AMBERVANE_STORE_ATTACHMENT_INDEX_TEXT_H_

#include <cstdint>
#include <string>
#include <utility>

#include "base/bytes.h"
#include "doctext/attachment_text.h"
#include "mailcore/parsed_message.h"

namespace ambervane {

/// Characters indexed of one message's body, and of the texts of its attachments.
inline constexpr std::size_t kMaxIndexedCharacters = 1048576;

/// What the full-text index holds of a message's attachments: their names in one line, and behind
/// it their texts. An inline picture's name says nothing, so those of inline parts are left out.
class AttachmentIndexText {
 public:
  /// `reader` reads the texts; null leaves it at the names. Must outlive this object.
  explicit AttachmentIndexText(const AttachmentTextReader* reader) : reader_(reader) {}

  void add(const AttachmentRef& attachment, BytesView decoded);
  /// How many were of a kind that is read, and damaged, encrypted or beyond a limit.
  std::int64_t unreadable() const noexcept { return unreadable_; }
  /// Names and texts.
  std::string take() { return std::exchange(names_, {}) + takeTexts(); }
  /// The texts alone, each behind an LF.
  std::string takeTexts();

 private:
  const AttachmentTextReader* reader_;
  std::string names_;
  std::string texts_;
  std::int64_t unreadable_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_ATTACHMENT_INDEX_TEXT_H_
