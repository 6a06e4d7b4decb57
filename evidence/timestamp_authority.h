#ifndef AMBERVANE_EVIDENCE_TIMESTAMP_AUTHORITY_H_
#define AMBERVANE_EVIDENCE_TIMESTAMP_AUTHORITY_H_

#include <functional>
#include <optional>
#include <string>

#include "base/bytes.h"
#include "base/date.h"
#include "base/digest.h"
#include "evidence/timestamp_error.h"
#include "platform/http.h"

namespace ambervane {

/// What an authority stated (RFC 3161). Its signature is not checked here; it stays in the token,
/// for anyone to verify with other tools.
struct TimestampToken {
  std::string token;                ///< base64 of the TimeStampToken, a CMS ContentInfo
  std::optional<Date> generatedAt;  ///< the authority's time; absent when it cannot be read
  std::string authority;            ///< who was asked: the URL's host
  std::string digest;               ///< what was stamped, in lower-case hexadecimal
  friend bool operator==(const TimestampToken&, const TimestampToken&) = default;
};

/// What asking takes from outside, so that a test can hold it.
struct TimestampExchange {
  HttpPost post = httpPost;
  std::function<Bytes(std::size_t)> random = randomBytes;
};

/// A time-stamping authority reached over HTTP.
struct TimestampAuthority {
  static constexpr std::size_t kNonceBytes = 8;

  std::string url;
  bool requestCertificate = true;  ///< whether the token shall hold the authority's certificate
  double timeout = 10;             ///< seconds for the whole exchange

  /// The TimeStampReq for a SHA-256 `digest` (32 bytes). `nonce` is read as a big-endian integer.
  static Bytes request(BytesView digest, BytesView nonce, bool requestCertificate);
  /// Checks the TimeStampResp in `data` and takes the token out of it: it must be granted, over
  /// `digest`, and with `nonce` when one was sent. `authority` is the URL that was asked. Throws
  /// TimestampError. Linear in `data`.
  static TimestampToken readReply(BytesView data, BytesView digest, const std::string& authority,
                                  const std::optional<Bytes>& nonce);

  /// Asks for a stamp over a SHA-256 `digest` and waits for it. Throws TimestampError.
  TimestampToken stampSynchronously(BytesView digest, const TimestampExchange& exchange = {}) const;
};

/// How an authority is named in records: the host in its URL, or the whole of it.
std::string authorityName(const std::string& url);

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_TIMESTAMP_AUTHORITY_H_
