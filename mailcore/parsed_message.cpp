#include "mailcore/parsed_message.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "base/digest.h"
#include "base/text.h"
#include "mailcore/charset.h"
#include "mailcore/html_text.h"
#include "mailcore/mail_date.h"
#include "mailcore/mime_parser.h"
#include "mailcore/rfc2047.h"

namespace ambervane {
namespace {

constexpr std::size_t kMaxFallbackTextBytes = 1U << 20;

bool isHtmlBody(const MIMEPart& part) {
  return part.contentType().value == "text/html" && !part.isAttachment();
}

/// The body of a message of one text part is never an attachment, whatever its disposition says.
bool isListedAttachment(const MIMEPart& part) {
  if (part.isMultipart()) return false;
  if (part.parent() == nullptr && part.isText()) return false;
  return part.isAttachment();
}

/// The UTF-8 text of at most the first mebibyte of the root's body, or nothing.
std::string fallbackText(const MIMEPart& root, BytesView raw) {
  const DecodedBytes decoded = root.decodedBody(raw);
  BytesView head = decoded.view().substr(0, kMaxFallbackTextBytes);
  if (head.size() < decoded.view().size()) {
    // The cut must not fall into a character.
    std::size_t lead = head.size();
    while (lead > 0 && head.size() - lead < 4 && (decoded.view()[lead] & 0xc0) == 0x80) --lead;
    head = head.substr(0, lead);
  }
  return isValidUtf8(head) ? std::string(head) : std::string();
}

/// The text behind a reply or forward prefix, or nothing where there is none.
std::optional<std::string_view> withoutPrefix(std::string_view subject) {
  static constexpr std::array<std::string_view, 12> kPrefixes = {
      "re:",  "aw:", "fwd:", "fw:",   "wg:",  "tr:",
      "rif:", "sv:", "vs:",  "antw:", "res:", "r\u00e9f:"};
  constexpr std::size_t kLongestPrefix = 5;  // characters
  const std::string start = lowercase(prefixCharacters(subject, kLongestPrefix));
  for (const std::string_view prefix : kPrefixes) {
    if (!start.starts_with(prefix)) continue;
    const std::size_t length = prefixCharacters(subject, characterCount(prefix)).size();
    return trim(subject.substr(length));
  }
  return std::nullopt;
}

/// The text behind a list's "[tag]", if a reply prefix follows there.
std::optional<std::string_view> withoutListTag(std::string_view subject) {
  constexpr std::size_t kLongestTag = 40;  // characters, both brackets included
  if (!subject.starts_with('[')) return std::nullopt;
  const std::size_t close = prefixCharacters(subject, kLongestTag).find(']');
  if (close == subject.npos) return std::nullopt;
  const std::string_view rest = trim(subject.substr(close + 1));
  if (!asciiEqualIgnoringCase(rest.substr(0, 3), "re:")) return std::nullopt;
  return rest;
}

}  // namespace

ParsedMessage::ParsedMessage(BytesView raw) : raw_(raw), root_(MIMEParser::parse(raw)) {}

std::string ParsedMessage::subject() const { return headers().decoded("subject").value_or(""); }

std::vector<MailAddress> ParsedMessage::addresses(std::string_view name) const {
  return AddressParser::parseList(headers()[name]);
}

std::optional<Date> ParsedMessage::date() const { return MailDate::parse(headers()["date"]); }

std::optional<std::string> ParsedMessage::identifier(std::string_view name) const {
  const std::string_view bare = trimOf(trim(headers()[name].value_or("")), "<>");
  if (bare.empty()) return std::nullopt;
  return std::string(bare);
}

std::vector<std::string> ParsedMessage::references() const {
  constexpr std::string_view kBlanks = " \t\r\n";
  std::vector<std::string> result;
  const std::string_view text = headers()["references"].value_or("");
  for (std::size_t at = text.find_first_not_of(kBlanks);
       at != text.npos && result.size() < kMaxReferences;) {
    const std::size_t end = std::min(text.find_first_of(kBlanks, at), text.size());
    const std::string_view bare = trimOf(text.substr(at, end - at), "<>");
    if (!bare.empty()) result.emplace_back(bare);
    at = text.find_first_not_of(kBlanks, end);
  }
  return result;
}

std::string ParsedMessage::normalizedSubject() const {
  return ambervane::normalizedSubject(subject());
}

std::string ParsedMessage::sha256() const { return sha256Hex(raw_); }

bool ParsedMessage::hasAttachments() const {
  return root_->findFirst(isListedAttachment) != nullptr;
}

void ParsedMessage::forEachAttachment(
    const std::function<void(AttachmentRef&&, DecodedBytes&&)>& visit) const {
  root_->walk([&](const MIMEPart& part) {
    if (!isListedAttachment(part)) return;
    const BytesView encoded = part.rawBody(raw_);
    AttachmentRef ref;
    if (const auto name = part.filename()) ref.filename = std::string(*name);
    ref.mimeType = part.contentType().value;
    if (const auto charset = part.contentType().parameter("charset")) ref.charset = *charset;
    ref.section = part.section();
    ref.encodedRange = part.bodyRange();
    ref.encodedSize = static_cast<std::int64_t>(encoded.size());
    ref.transferEncoding = part.transferEncoding();
    if (const auto id = part.contentID()) ref.contentID = std::string(*id);
    const ParameterizedHeader* const disposition = part.disposition();
    ref.isInline =
        ref.contentID.has_value() || (disposition != nullptr && disposition->value == "inline");
    DecodedBytes decoded = ContentTransferDecoder::decode(encoded, ref.transferEncoding);
    ref.decodedSize = static_cast<std::int64_t>(decoded.view().size());
    ref.encodedHash = sha256Hex(encoded);
    // Borrowed bytes are the encoded ones, which need not be hashed twice.
    ref.contentHash =
        decoded.view().data() == encoded.data() ? ref.encodedHash : sha256Hex(decoded.view());
    visit(std::move(ref), std::move(decoded));
  });
}

std::vector<AttachmentRef> ParsedMessage::attachments() const {
  std::vector<AttachmentRef> result;
  forEachAttachment(
      [&](AttachmentRef&& attachment, DecodedBytes&&) { result.push_back(std::move(attachment)); });
  return result;
}

std::string ParsedMessage::plainTextBody() const {
  const MIMEPart* part = root_->findFirst([](const MIMEPart& candidate) {
    return candidate.contentType().value == "text/plain" && !candidate.isAttachment();
  });
  if (part == nullptr) part = root_->findFirst(isHtmlBody);
  if (part == nullptr && !root_->isAttachment()) part = root_.get();
  if (part == nullptr) return {};
  std::string text = part->textContent(raw_).value_or("");
  return part->contentType().value == "text/html" ? HTMLText::strip(text) : text;
}

std::optional<std::string> ParsedMessage::htmlBody() const {
  const MIMEPart* const part = root_->findFirst(isHtmlBody);
  if (part == nullptr) return std::nullopt;
  return part->textContent(raw_);
}

MessageTexts ParsedMessage::texts() const {
  MessageTexts texts;
  // Where the texts of the first part of each kind stand in `texts.all`.
  std::optional<ByteRange> plain;
  std::optional<ByteRange> html;
  std::optional<ByteRange> root;
  bool any = false;
  root_->walk([&](const MIMEPart& part) {
    if (!part.isText() || part.isAttachment()) return;
    const std::string& type = part.contentType().value;
    std::string text = part.textContent(raw_).value_or("");
    if (type == "text/html") text = HTMLText::strip(text);
    if (any) texts.all.push_back('\n');
    any = true;
    const ByteRange range = {texts.all.size(), texts.all.size() + text.size()};
    texts.all += text;
    if (type == "text/plain" && !plain) plain = range;
    if (type == "text/html" && !html) html = range;
    if (part.parent() == nullptr) root = range;
  });
  const auto body = plain ? plain : html ? html : root;
  if (body) texts.plainTextBody = slice(texts.all, *body);
  if (!any) texts.all = fallbackText(*root_, raw_);
  return texts;
}

std::string normalizedSubject(std::string_view text) {
  const std::string whole = composed(text);
  std::string_view subject = trim(whole);
  for (;;) {
    const auto shorter = withoutPrefix(subject);
    subject = shorter.value_or(subject);
    if (const auto untagged = withoutListTag(subject)) {
      subject = *untagged;
      continue;
    }
    if (!shorter) return std::string(subject);
  }
}

}  // namespace ambervane
