#include "store/prepared_message.h"

#include <algorithm>
#include <limits>
#include <set>

#include "base/digest.h"
#include "base/text.h"
#include "mailcore/address_parser.h"
#include "mailcore/looks_like_mail.h"
#include "mailcore/preview.h"
#include "store/attachment_index_text.h"
#include "store/base64_recipe.h"
#include "store/header_index.h"
#include "store/message_record.h"

namespace ambervane {
namespace {

constexpr std::size_t kSnippetLimit = 400;

/// Cuts the attachments of threshold size out of the raw bytes; what stays becomes literals.
class MessageSplitter {
 public:
  MessageSplitter(BytesView raw, const PrepareSettings& settings, PreparedMessage& out)
      : raw_(raw), settings_(settings), out_(out), texts_(settings.attachmentText) {}

  /// Attachments come in the order of their places in the message, those of one inside another
  /// after it, so one walk with a cursor splits.
  MessageRecord split(const ParsedMessage& parsed) {
    parsed.forEachAttachment([this](AttachmentRef&& attachment, DecodedBytes&& decoded) {
      texts_.add(attachment, decoded.view());
      if (isExtracted(attachment)) {
        extract(std::move(attachment), std::move(decoded));
      } else {
        out_.inlineAttachments.push_back(std::move(attachment));
      }
    });
    if (cursor_ < raw_.size() || record_.segments.empty()) {
      record_.segments.push_back(MessageRecord::Literal{raw_.substr(cursor_)});
    }
    out_.unreadableAttachments = texts_.unreadable();
    out_.indexed.attachments = texts_.take();
    return std::move(record_);
  }

 private:
  bool isExtracted(const AttachmentRef& attachment) const {
    const ByteRange range = attachment.encodedRange;
    // Three more segments must fit: a literal, the blob, and the tail.
    return attachment.encodedSize >= settings_.extractionThreshold && range.begin >= cursor_ &&
           range.end <= raw_.size() && record_.segments.size() + 3 <= MessageRecord::kMaxSegments;
  }

  void extract(AttachmentRef&& attachment, DecodedBytes&& decoded) {
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
    blob.isKnown = settings_.known != nullptr && settings_.known->hasBlob(blob.ref.encodedHash);
    if (!blob.isKnown && settings_.storesContent) compress(encoded, std::move(decoded), blob);
    out_.extracted.push_back(std::move(blob));
  }

  /// Stores the decoded bytes where the encoded ones can be made from them again.
  void compress(BytesView encoded, DecodedBytes&& decoded, PreparedBlob& blob) {
    const BytesView dictionary = settings_.dictionary.view();
    std::optional<Base64Recipe> recipe;
    if (blob.ref.transferEncoding == TransferEncoding::base64) {
      recipe = Base64Recipe::analyze(encoded, decoded.view());
    } else if (auto analysis = Base64Recipe::analyze(encoded)) {
      recipe = std::move(analysis->recipe);
      decoded = DecodedBytes(std::move(analysis->decoded));
    }
    if (recipe) {
      blob.compressed =
          Compressor::compressOwned(std::move(decoded).take(), dictionary, settings_.effort);
      blob.recipe = recipe->toJson();
    } else {
      blob.compressed = Compressor::compress(encoded, dictionary, settings_.effort);
    }
  }

  BytesView raw_;
  const PrepareSettings& settings_;
  PreparedMessage& out_;
  AttachmentIndexText texts_;
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

}  // namespace

std::string peopleOf(const HeaderSet& headers, const std::string& addresses) {
  std::string people = addresses;
  for (const std::string_view name : kPeopleFields) {
    for (const HeaderField& field : headers.all(name)) people += ' ' + field.decodedValue();
  }
  return people;
}

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

  const ParsedMessage parsed(raw);
  if (settings.known != nullptr && settings.known->hasMessage(out.hash)) {
    out.isKnown = true;
    out.envelope.sentAt = parsed.date();
    return out;
  }
  if (settings.isLearning) out.trainingSample = DictionaryTrainer::sampleOf(raw);

  {
    const MessageRecord record = MessageSplitter(raw, settings, out).split(parsed);
    if (!settings.storesContent) {
      // What is described is in the archive already.
    } else if (Bytes plain = record.encode(); settings.compressesRecords) {
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
  out.people = peopleOf(parsed.headers(), out.envelope.participants);
  out.indexed.subject = out.envelope.subject;
  out.indexed.participants = out.envelope.participants;
  out.indexed.body = std::string(prefixCharacters(texts.all, kMaxIndexedCharacters));
  return out;
}

}  // namespace ambervane
