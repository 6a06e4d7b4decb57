#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/text.h"
#include "mailcore/looks_like_mail.h"
#include "mailcore/parsed_message.h"
#include "mailcore/preview.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

/// Any bytes as a message: every part lies inside its parent and every text is UTF-8.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  const BytesView raw(reinterpret_cast<const char*>(data), size);
  const ParsedMessage message(raw);
  message.root().walk([&](const MIMEPart& part) {
    const ByteRange whole = part.fullRange();
    require(part.headerRange().begin == whole.begin && part.headerRange().end <= whole.end);
    require(part.bodyRange().begin >= part.headerRange().end && part.bodyRange().end == whole.end);
    if (part.parent() != nullptr) {
      require(whole.begin >= part.parent()->bodyRange().begin);
      require(whole.end <= part.parent()->bodyRange().end);
    }
    require(isValidUtf8(part.headers().serialized()));
  });
  const MessageTexts texts = message.texts();
  require(texts.plainTextBody == message.plainTextBody());
  require(isValidUtf8(texts.all) && isValidUtf8(message.normalizedSubject()));
  require(isValidUtf8(collapsedForPreview(texts.plainTextBody, 400)));
  require(message.attachments().empty() == !message.hasAttachments());
  looksLikeMail(raw);
  return 0;
}
