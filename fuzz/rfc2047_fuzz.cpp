#include "fuzz/fuzz_input.h"
#include "mailcore/charset.h"
#include "mailcore/rfc2047.h"

/// Any field with encoded words; any text survives becoming such a word.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  const std::string field = Charset::decodeUnlabelled(fuzzInput(data, size));
  const std::string decoded = RFC2047::decode(field);
  requireUtf8(decoded);
  if (field.find("=?") == field.npos) require(decoded == trim(field));
  if (!isAscii(field)) require(RFC2047::decode(RFC2047::encodeIfNeeded(field)) == trim(field));
  return 0;
}
