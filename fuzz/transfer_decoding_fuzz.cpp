#include "fuzz/fuzz_input.h"
#include "mailcore/transfer_decoding.h"

/// The first byte is the length of a line, the rest a body.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  if (size == 0) return 0;
  const std::string_view body = fuzzInput(data, size).substr(1);
  require(ContentTransferDecoder::decodeBase64(
              ContentTransferDecoder::encodeBase64Wrapped(body, data[0])) == body);
  require(ContentTransferDecoder::decodeBase64(body).size() <= body.size() / 4 * 3 + 3);
  const Bytes plain = ContentTransferDecoder::decodeQuotedPrintable(body);
  require(plain.size() <= body.size());
  if (body.find('=') == body.npos) require(plain == body);
  require(ContentTransferDecoder::decodeHexEscapes(body, '%').size() <= body.size());
  return 0;
}
