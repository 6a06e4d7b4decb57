#include "evidence/timestamp_authority.h"

#include <algorithm>

#include "base/text.h"
#include "evidence/der.h"

namespace ambervane {
namespace {

constexpr std::string_view kSha256Identifier = "2.16.840.1.101.3.4.2.1";
constexpr std::string_view kTstInfoIdentifier = "1.2.840.113549.1.9.16.1.4";
/// Tokens with all their certificates have some ten thousand bytes.
constexpr std::size_t kMaxReplyBytes = 256 * 1024;
/// Of an authority's words, which end up in a seal.
constexpr std::size_t kMaxTextBytes = 1000;

using Detail = TimestampError::Malformed::Detail;

[[noreturn]] void malformed(Detail detail) {
  throw TimestampError(TimestampError::Malformed{detail});
}

/// Without leading zero bytes, so that integers compare whatever their encoding.
BytesView unsignedBytes(BytesView bytes) {
  while (!bytes.empty() && bytes.front() == '\0') bytes.remove_prefix(1);
  return bytes;
}

/// The first string of PKIFreeText in a PKIStatusInfo, whichever string type it has.
std::string statusText(const std::vector<DER::Element>& status, BytesView data) {
  if (status.size() < 2 || status[1].tag != DER::kSequence) return {};
  const auto text = DER::element(data.substr(0, status[1].end()), status[1].contents.begin);
  return text ? printable(DER::body(*text, data).substr(0, kMaxTextBytes)) : std::string();
}

/// Throws unless the PKIStatusInfo says granted, or granted with modifications.
void requireGranted(const DER::Element& info, BytesView data) {
  if (info.tag != DER::kSequence) malformed(Detail::status);
  const auto fields = DER::children(info, data);
  const auto status =
      fields.empty() ? std::optional<std::int64_t>() : DER::integerValue(fields[0], data);
  if (!status) malformed(Detail::status);
  if (*status != 0 && *status != 1) {
    throw TimestampError(TimestampError::Rejected{*status, statusText(fields, data)});
  }
}

/// The TSTInfo in a token. It is the octet string behind its identifier in EncapsulatedContentInfo
/// (RFC 5652 section 5.2); the same identifier stands once more among the signed attributes.
DER::Element findInfo(const DER::Element& token, BytesView data) {
  static const Bytes kIdentifier = DER::objectIdentifier(kTstInfoIdentifier);
  const auto identifier = [&](const DER::Element& sequence) {
    return slice(data, sequence.contents).starts_with(kIdentifier);
  };
  const auto content =
      DER::firstElement(data, DER::kSequence, token.start, token.end(), 0, identifier);
  if (!content) malformed(Detail::noInfo);
  const auto tagged =
      DER::element(data.substr(0, content->end()), content->contents.begin + kIdentifier.size());
  if (!tagged || !tagged->isConstructed()) malformed(Detail::noInfo);
  const auto octets =
      DER::firstElement(data, DER::kOctetString, tagged->contents.begin, tagged->end());
  if (!octets) malformed(Detail::noInfo);
  const auto info = DER::element(data.substr(0, octets->end()), octets->contents.begin);
  if (!info || info->tag != DER::kSequence) malformed(Detail::noInfo);
  return *info;
}

bool isImprintOf(BytesView digest, const DER::Element& imprint, BytesView data) {
  if (imprint.tag != DER::kSequence) return false;
  const auto fields = DER::children(imprint, data);
  return fields.size() >= 2 && fields[1].tag == DER::kOctetString &&
         DER::body(fields[1], data) == digest;
}

std::string transportDetail(const HttpError& error, double timeout) {
  if (std::holds_alternative<HttpError::TimedOut>(error.reason())) {
    return decimalNumber(timeout) + " seconds";
  }
  return error.what();
}

}  // namespace

Bytes TimestampAuthority::request(BytesView digest, BytesView nonce, bool requestCertificate) {
  const Bytes algorithm = DER::sequence({DER::objectIdentifier(kSha256Identifier), DER::null()});
  return DER::sequence({DER::integer(1), DER::sequence({algorithm, DER::octetString(digest)}),
                        DER::integer(nonce), requestCertificate ? DER::boolean(true) : Bytes()});
}

TimestampToken TimestampAuthority::readReply(BytesView data, BytesView digest,
                                             const std::string& authority,
                                             const std::optional<Bytes>& nonce) {
  const auto reply = DER::element(data, 0);
  if (!reply || reply->tag != DER::kSequence) malformed(Detail::notSequence);
  const auto parts = DER::children(*reply, data);
  if (parts.empty()) malformed(Detail::status);
  requireGranted(parts[0], data);
  if (parts.size() < 2) malformed(Detail::noToken);
  const DER::Element& token = parts[1];

  // version, policy, messageImprint, serialNumber, genTime, and optional fields behind them
  const auto fields = DER::children(findInfo(token, data), data);
  if (fields.size() < 5) malformed(Detail::fieldsMissing);
  if (!isImprintOf(digest, fields[2], data)) {
    throw TimestampError(TimestampError::ImprintMismatch{});
  }
  if (fields[4].tag != DER::kGeneralizedTime) malformed(Detail::noTime);
  if (nonce) {
    const auto echoed =
        std::find_if(fields.begin() + 5, fields.end(),
                     [](const DER::Element& field) { return field.tag == DER::kInteger; });
    if (echoed == fields.end() ||
        unsignedBytes(DER::body(*echoed, data)) != unsignedBytes(*nonce)) {
      throw TimestampError(TimestampError::NonceMismatch{});
    }
  }
  return {.token = base64Encode(slice(data, token.whole())),
          .generatedAt = DER::generalizedTime(fields[4], data),
          .authority = authorityName(authority),
          .digest = hexEncode(digest)};
}

TimestampToken TimestampAuthority::stampSynchronously(BytesView digest,
                                                      const TimestampExchange& exchange) const {
  if (url.empty()) throw TimestampError(TimestampError::NotConfigured{});
  const Bytes nonce = exchange.random(kNonceBytes);
  HttpReply reply;
  try {
    reply = exchange.post({.url = url,
                           .headers = {"Content-Type: application/timestamp-query",
                                       "Accept: application/timestamp-reply"},
                           .body = request(digest, nonce, requestCertificate),
                           .timeoutSeconds = timeout,
                           .maxReplyBytes = kMaxReplyBytes});
  } catch (const HttpError& error) {
    throw TimestampError(TimestampError::Transport{transportDetail(error, timeout)});
  }
  if (reply.status < 200 || reply.status > 299) {
    throw TimestampError(TimestampError::Transport{"HTTP " + std::to_string(reply.status)});
  }
  return readReply(reply.body, digest, url, nonce);
}

std::string authorityName(const std::string& url) {
  const std::string host = urlHost(url);
  return host.empty() ? url : host;
}

}  // namespace ambervane
