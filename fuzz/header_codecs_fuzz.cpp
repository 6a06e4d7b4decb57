#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/text.h"
#include "mailcore/address_parser.h"
#include "mailcore/charset.h"
#include "mailcore/html_text.h"
#include "mailcore/mail_date.h"
#include "mailcore/parameterized_header.h"
#include "mailcore/rfc2047.h"
#include "mailcore/transfer_decoding.h"

namespace {

void requireUtf8(std::string_view text) {
  if (!ambervane::isValidUtf8(text)) std::abort();
}

}  // namespace

/// The first line of the input is a charset label, the rest goes through every codec.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  const BytesView input(reinterpret_cast<const char*>(data), size);
  const std::size_t lineEnd = input.find('\n');
  const BytesView label = input.substr(0, lineEnd);
  const BytesView rest = lineEnd == BytesView::npos ? BytesView() : input.substr(lineEnd + 1);
  requireUtf8(Charset::decode(rest, repairedUtf8(label)));
  requireUtf8(HTMLText::strip(rest));

  const std::string field = Charset::decodeUnlabelled(input);
  requireUtf8(field);
  requireUtf8(RFC2047::decode(field));
  for (const MailAddress& address : AddressParser::parseList(field)) {
    requireUtf8(address.formatted() + address.domain().value_or("") + address.group.value_or(""));
  }
  if (const auto header = ParameterizedHeader::parse(field)) {
    requireUtf8(header->value);
    for (const auto& [name, value] : header->parameters) requireUtf8(name + value);
  }
  if (const auto date = MailDate::parse(field)) MailDate::format(*date, Zone::zurich);

  const Bytes wrapped = ContentTransferDecoder::encodeBase64Wrapped(input, 76);
  if (ContentTransferDecoder::decodeBase64(wrapped) != input) std::abort();
  ContentTransferDecoder::decodeBase64(input);
  ContentTransferDecoder::decodeQuotedPrintable(input);
  return 0;
}
