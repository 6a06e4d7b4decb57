#ifndef AMBERVANE_MAILCORE_TRANSFER_DECODING_H_
#define AMBERVANE_MAILCORE_TRANSFER_DECODING_H_

#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

#include "base/bytes.h"

namespace ambervane {

/// How a body is encoded for transport (RFC 2045 section 6).
enum class TransferEncoding { sevenBit, eightBit, binary, base64, quotedPrintable, unknown };

/// Reads the value of a Content-Transfer-Encoding field; absent or blank is `sevenBit`.
TransferEncoding transferEncodingFromHeader(std::optional<std::string_view> value);
/// "7bit", "8bit", "binary", "base64", "quoted-printable" or "unknown".
std::string_view transferEncodingName(TransferEncoding encoding) noexcept;

/// A body after transfer decoding: a view of the encoded bytes where they say what they mean,
/// which must then outlive this, else bytes of its own.
class DecodedBytes {
 public:
  explicit DecodedBytes(BytesView borrowed) : bytes_(borrowed) {}
  explicit DecodedBytes(Bytes owned) : bytes_(std::move(owned)) {}
  BytesView view() const noexcept;
  /// The bytes as an owner; copies only where they were borrowed.
  Bytes take() &&;

 private:
  std::variant<BytesView, Bytes> bytes_;
};

/// Decoders for what mail really holds: they are total, linear and skip what they cannot read.
namespace ContentTransferDecoder {

/// Bytes outside the alphabet are passed over; the first "=" ends the text.
Bytes decodeBase64(BytesView data);
/// RFC 2045 section 6.7. White space at a line's end stays; a "=" that encodes nothing stays; an
/// encoded CR in front of a real line end is dropped.
Bytes decodeQuotedPrintable(BytesView data);
/// The value of a base64 digit, or -1.
int base64Digit(char c) noexcept;
/// `text` with each `escape` and the two hexadecimal digits behind it replaced by their byte. An
/// `escape` without them stays.
Bytes decodeHexEscapes(std::string_view text, char escape);
/// Standard base64 in lines of `lineLength` characters (at least 1), each ended by CRLF.
Bytes encodeBase64Wrapped(BytesView data, std::size_t lineLength);
/// The bytes `data` stands for; all but base64 and quoted-printable stand for themselves.
DecodedBytes decode(BytesView data, TransferEncoding encoding);

}  // namespace ContentTransferDecoder
}  // namespace ambervane

#endif  // AMBERVANE_MAILCORE_TRANSFER_DECODING_H_
