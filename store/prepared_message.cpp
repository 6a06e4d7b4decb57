#include "store/prepared_message.h"

#include <algorithm>
#include <limits>
#include <set>

#include "base/digest.h"
#include "base/text.h"
#include "mailcore/address_parser.h"
#include "mailcore/looks_like_mail.h"
#include "mailcore/preview.h"
#include "store/base64_recipe.h"
#include "store/header_index.h"
#include "store/message_record.h"

namespace ambervane {
namespace {

constexpr std::size_t kSnippetLimit = 400;
/// Characters of text indexed per message.
constexpr std::size_t kIndexedCharacters = 1048576;

/// Cuts the attachments of threshold size out of the raw bytes; what stays becomes literals.
class MessageSplitter {
 public:
  MessageSplitter(BytesView raw, const PrepareSettings& settings, PreparedMessage& out)
      : raw_(raw), settings_(settings), out_(out) {}

  MessageRecord split(std::vector<AttachmentRef> attachments) {
    std::stable_sort(attachments.begin(), attachments.end(),
                     [](const AttachmentRef& a, const AttachmentRef& b) {
                       return a.encodedRange.begin < b.encodedRange.begin;
                     });
    for (AttachmentRef& attachment : attachments) {
      if (isExtracted(attachment)) {
        extract(std::move(attachment));
      } else {
        out_.inlineAttachments.push_back(std::move(attachment));
      }
    }
    if (cursor_ < raw_.size() || record_.segments.empty()) {
      record_.segments.push_back(MessageRecord::Literal{raw_.substr(cursor_)});
    }
    return std::move(record_);
  }

 private:
  bool isExtracted(const AttachmentRef& attachment) const {
    const ByteRange range = attachment.encodedRange;
    // Three more segments must fit: a literal, the blob, and the tail.
    return attachment.encodedSize >= settings_.extractionThreshold && range.begin >= cursor_ &&
           range.end <= raw_.size() && record_.segments.size() + 3 <= MessageRecord::kMaxSegments;
  }

  void extract(AttachmentRef attachment) {
    const ByteRange range = attachment.encodedRange;
    if (cursor_ < range.begin) {
      record_.segments.push_back(
          MessageRecord::Literal{raw_.substr(cursor_, range.begin - cursor_)});
    }
    const BytesView encoded = slice(raw_, range);
    record_.segments.push_back(
        MessageRecord::Blob{attachment.encodedHash, static_cast<std::uint32_t>(encoded.size())});
    cursor_ = range.end;

    PreparedBlob blob;
    blob.ref = std::move(attachment);
    blob.encodedLength = encoded.size();
    const BytesView dictionary = settings_.dictionary.view();
    if (const auto analysis = Base64Recipe::analyze(encoded)) {
      blob.compressed = Compressor::compress(analysis->decoded, dictionary, settings_.effort);
      blob.recipe = analysis->recipe.toJson();
    } else {
      blob.compressed = Compressor::compress(encoded, dictionary, settings_.effort);
    }
    out_.extracted.push_back(std::move(blob));
  }

  BytesView raw_;
  const PrepareSettings& settings_;
  PreparedMessage& out_;
  MessageRecord record_;
  std::size_t cursor_ = 0;
};

std::string joinedAddresses(const std::vector<MailAddress>& addresses) {
  std::string text;
  for (const MailAddress& address : addresses) {
    if (address.address.empty()) continue;
    if (!text.empty()) text += ", ";
    text += address.address;
  }
  return text;
}

std::string firstNonEmpty(const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    if (!text.empty()) return text;
  }
  return {};
}

EnvelopeFields readEnvelope(const ParsedMessage& parsed) {
  EnvelopeFields envelope;
  const auto from = parsed.from();
  const auto to = parsed.to();
  const auto cc = parsed.cc();
  if (!from.empty()) {
    envelope.fromAddress = lowercase(from.front().address);
    envelope.fromName = from.front().displayName.value_or("");
    envelope.fromDomain = from.front().domain().value_or("");
  }
  std::set<std::string> people;
  const auto replyTo = parsed.replyTo();
  const auto bcc = parsed.bcc();
  for (const auto* list : {&from, &replyTo, &to, &cc, &bcc}) {
    for (const MailAddress& address : *list) {
      if (!address.address.empty()) people.insert(lowercase(address.address));
    }
  }
  envelope.participants = join({people.begin(), people.end()}, " ");
  envelope.toAddresses = joinedAddresses(to);
  envelope.ccAddresses = joinedAddresses(cc);
  envelope.messageID = parsed.messageID().value_or("");
  envelope.subject = parsed.subject();
  envelope.subjectNormalized = lowercase(parsed.normalizedSubject());
  envelope.sentAt = parsed.date();
  envelope.inReplyTo = parsed.inReplyTo().value_or("");
  const auto references = parsed.references();
  envelope.references = join(references, " ");
  envelope.threadKey = firstNonEmpty(
      {references.empty() ? "" : references.front(), envelope.inReplyTo, envelope.messageID,
       envelope.subjectNormalized.empty() ? "" : "subj:" + envelope.subjectNormalized,
       "unthreaded"});
  return envelope;
}

std::string attachmentNames(const std::vector<AttachmentRef>& attachments) {
  std::string names;
  for (const AttachmentRef& attachment : attachments) {
    if (attachment.isInline || !attachment.filename) continue;
    if (!names.empty()) names += ' ';
    names += *attachment.filename;
  }
  return names;
}

}  // namespace

std::optional<PreparedMessage> prepareOne(SourceMessage source, const PrepareSettings& settings) {
  const Bytes raw = std::move(source.raw);
  source.raw = Bytes();
  // A record's length field has 32 bits.
  if (raw.empty() || raw.size() > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;

  PreparedMessage out;
  out.source = std::move(source);
  out.size = raw.size();
  out.looksLikeMail = looksLikeMail(raw);
  if (!out.looksLikeMail && !settings.preparesWhatIsNotMail) return out;
  out.hash = sha256Hex(raw);
  out.dictionaryID = settings.dictionary.id;

  if (settings.isLearning) out.trainingSample = DictionaryTrainer::sampleOf(raw);

  const ParsedMessage parsed(raw);
  auto attachments = parsed.attachments();
  out.indexed.attachments = attachmentNames(attachments);
  {
    const MessageRecord record = MessageSplitter(raw, settings, out).split(std::move(attachments));
    Bytes plain = record.encode();
    if (settings.compressesRecords) {
      out.record = Compressor::compress(plain, settings.dictionary.view(), settings.effort);
    } else {
      out.record.originalLength = plain.size();
      out.record.payload = std::move(plain);
    }
  }
  out.envelope = readEnvelope(parsed);
  const MessageTexts texts = parsed.texts();
  out.envelope.snippet = collapsedForPreview(texts.plainTextBody, kSnippetLimit);
  out.headers = indexedHeaders(parsed.headers());
  out.indexed.subject = out.envelope.subject;
  out.indexed.participants = out.envelope.participants;
  out.indexed.body = std::string(prefixCharacters(texts.all, kIndexedCharacters));
  return out;
}

}  // namespace ambervane
