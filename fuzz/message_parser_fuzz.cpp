#include "fuzz/fuzz_input.h"
#include "mailcore/looks_like_mail.h"
#include "mailcore/parsed_message.h"
#include "mailcore/preview.h"

namespace {

using namespace ambervane;

/// Header fields written out read as they did, but for names that UTF-8 changes.
void checkHeaders(const HeaderSet& headers) {
  const Bytes written = headers.serialized();
  requireUtf8(written);
  if (!isAscii(written)) return;
  const HeaderSet again = HeaderSet::parse(written);
  require(again.size() == headers.size());
  for (std::size_t i = 0; i < headers.size(); ++i) {
    const HeaderField field = headers.field(i);
    require(again.field(i) == field);
    require(headers.first(field.name).has_value());
  }
}

void checkPart(const MIMEPart& part) {
  const ByteRange whole = part.fullRange();
  require(part.headerRange().begin == whole.begin && part.headerRange().end <= whole.end);
  require(part.bodyRange().begin >= part.headerRange().end && part.bodyRange().end == whole.end);
  std::size_t end = part.bodyRange().begin;
  for (const auto& child : part.children()) {
    require(child->parent() == &part);
    require(child->fullRange().begin >= end && child->fullRange().end <= whole.end);
    end = child->fullRange().end;
    const std::string& section = part.section();
    require(child->section().starts_with(section.empty() ? section : section + "."));
  }
  checkHeaders(part.headers());
}

}  // namespace

/// Any bytes as a message: every part lies inside its parent and every text is UTF-8.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const BytesView raw = fuzzInput(data, size);
  const ParsedMessage message(raw);
  message.root().walk(checkPart);
  const MessageTexts texts = message.texts();
  require(texts.plainTextBody == message.plainTextBody());
  requireUtf8(texts.all);
  requireUtf8(message.normalizedSubject());
  for (const std::string& reference : message.references()) requireUtf8(reference);
  requireUtf8(message.messageID().value_or("") + message.inReplyTo().value_or(""));
  requireUtf8(collapsedForPreview(texts.plainTextBody, 400));
  const auto attachments = message.attachments();
  require(attachments.empty() == !message.hasAttachments());
  for (const AttachmentRef& attachment : attachments) {
    require(attachment.encodedRange.end <= size);
    requireUtf8(attachment.filename.value_or("") + attachment.contentID.value_or(""));
  }
  looksLikeMail(raw);
  return 0;
}
