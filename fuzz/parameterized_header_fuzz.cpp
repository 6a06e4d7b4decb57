#include "fuzz/fuzz_input.h"
#include "mailcore/charset.h"
#include "mailcore/parameterized_header.h"

/// Any field as a value with parameters.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  const std::string field = Charset::decodeUnlabelled(fuzzInput(data, size));
  const auto header = ParameterizedHeader::parse(field);
  require(header.has_value() == !trim(field).empty());
  if (!header) return 0;
  requireUtf8(header->value);
  require(header->parameters.size() <= kMaxParameters);
  for (const auto& [name, value] : header->parameters) {
    requireUtf8(name);
    requireUtf8(value);
    require(header->parameter(name) == value);
  }
  return 0;
}
