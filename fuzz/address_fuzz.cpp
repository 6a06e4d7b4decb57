#include "fuzz/fuzz_input.h"
#include "mailcore/address_parser.h"
#include "mailcore/charset.h"

/// Any field as a list of addresses.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  const std::string field = Charset::decodeUnlabelled(fuzzInput(data, size));
  for (const MailAddress& address : AddressParser::parseList(field)) {
    requireUtf8(address.formatted() + address.domain().value_or("") + address.normalizedAddress());
    requireUtf8(address.group.value_or(""));
    require(!address.displayName || !address.displayName->empty());
  }
  requireUtf8(AddressParser::unquote(field));
  return 0;
}
