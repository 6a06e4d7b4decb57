#include "store/attachment_index_text.h"

#include <utility>

#include "base/text.h"

namespace ambervane {

void AttachmentIndexText::add(const AttachmentRef& attachment, BytesView decoded) {
  if (!attachment.isInline && attachment.filename) {
    if (!names_.empty()) names_ += ' ';
    names_ += *attachment.filename;
  }
  if (reader_ == nullptr || texts_.size() >= kMaxIndexedCharacters) return;
  std::string type = attachment.mimeType;
  if (!attachment.charset.empty()) type += "; charset=" + attachment.charset;
  auto text =
      reader_->read(decoded, type, attachment.filename.value_or(""), attachment.contentHash);
  if (!text) return;
  if (!text->readable) ++unreadable_;
  if (text->text.empty()) return;
  texts_ += '\n';
  texts_ += text->text;
}

std::string AttachmentIndexText::takeTexts() {
  texts_.resize(prefixCharacters(texts_, kMaxIndexedCharacters).size());
  return std::exchange(texts_, {});
}

}  // namespace ambervane
