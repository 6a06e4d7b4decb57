#include "mailcore/mime_part.h"

#include "base/text.h"
#include "mailcore/charset.h"

namespace ambervane {

const ParameterizedHeader& MIMEPart::contentType() const {
  if (!contentType_) {
    auto type = ParameterizedHeader::parse(headers_["content-type"]);
    if (!type) {
      const bool inDigest =
          parent_ != nullptr && parent_->contentType().value == "multipart/digest";
      type.emplace();
      type->value = inDigest ? "message/rfc822" : "text/plain";
    }
    contentType_ = std::make_unique<const ParameterizedHeader>(*std::move(type));
  }
  return *contentType_;
}

const ParameterizedHeader* MIMEPart::disposition() const {
  if (!dispositionRead_) {
    dispositionRead_ = true;
    if (auto parsed = ParameterizedHeader::parse(headers_["content-disposition"])) {
      disposition_ = std::make_unique<const ParameterizedHeader>(*std::move(parsed));
    }
  }
  return disposition_.get();
}

TransferEncoding MIMEPart::transferEncoding() const {
  return transferEncodingFromHeader(headers_["content-transfer-encoding"]);
}

bool MIMEPart::isRFC822() const {
  const std::string& type = contentType().value;
  return type == "message/rfc822" || type == "message/global";
}

std::optional<std::string_view> MIMEPart::contentID() const {
  const auto value = headers_["content-id"];
  if (!value) return std::nullopt;
  return trimOf(trim(*value), "<>");
}

std::optional<std::string_view> MIMEPart::filename() const {
  if (const ParameterizedHeader* const found = disposition()) {
    const auto name = found->parameter("filename");
    if (name && !name->empty()) return name;
  }
  const auto name = contentType().parameter("name");
  if (name && !name->empty()) return name;
  return std::nullopt;
}

bool MIMEPart::isAttachment() const {
  const ParameterizedHeader* const how = disposition();
  if (how != nullptr && how->value == "attachment") return true;
  const bool named = filename().has_value();
  if (how != nullptr && how->value == "inline" && named && !isText()) return true;
  if (isMultipart()) return false;
  if (named) return true;
  return !isText() && contentType().mediaType() != "message";
}

DecodedBytes MIMEPart::decodedBody(BytesView data) const {
  return ContentTransferDecoder::decode(rawBody(data), transferEncoding());
}

std::optional<std::string> MIMEPart::textContent(BytesView data) const {
  if (!isText()) return std::nullopt;
  return Charset::decode(decodedBody(data).view(), contentType().charset());
}

}  // namespace ambervane
