#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/digest.h"
#include "evidence/timestamp_authority.h"

using namespace ambervane;

// Whatever an authority sends is taken or refused; what is taken is a piece of what was sent. With
// the digest and nonce of the seeds, so that replies which pass both checks are reached.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Bytes kDigest = sha256("abc");
  static const Bytes kNonce("\x80\x01\x02\x03\x04\x05\x06\x07", 8);
  const BytesView reply(reinterpret_cast<const char*>(data), size);
  try {
    const TimestampToken token =
        TimestampAuthority::readReply(reply, kDigest, "http://tsa.example/", kNonce);
    const auto bytes = base64DecodeStrict(token.token);
    if (!bytes || reply.find(*bytes) == BytesView::npos) std::abort();
  } catch (const TimestampError& error) {
    if (error.message().text().empty()) std::abort();
  }
  return 0;
}
