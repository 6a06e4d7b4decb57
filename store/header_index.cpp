#include "store/header_index.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>

#include "base/text.h"
#include "mailcore/rfc2047.h"

namespace ambervane {
namespace {

constexpr std::array<std::string_view, 6> kSignatureHeaders = {
    "dkim-signature", "domainkey-signature",   "x-google-dkim-signature",
    "arc-seal",       "arc-message-signature", "x-ms-exchange-crosstenant-originalarrivaltime",
};

bool isSignature(std::string_view name) {
  return std::find(kSignatureHeaders.begin(), kSignatureHeaders.end(), name) !=
         kSignatureHeaders.end();
}

}  // namespace

std::vector<std::pair<std::string, std::string>> indexedHeaders(const HeaderSet& headers) {
  std::vector<std::pair<std::string, std::string>> rows;
  std::map<std::string, std::size_t, std::less<>> seen;
  for (std::size_t i = 0; i < headers.size() && rows.size() < kMaximumIndexedHeaders; ++i) {
    // Cut before lower-casing too: a name can be as long as the message.
    std::string name = lowercase(prefixCharacters(headers.name(i), kMaximumHeaderNameLength));
    name.resize(prefixCharacters(name, kMaximumHeaderNameLength).size());
    if (name.empty() || ++seen[name] > kMaximumRepeatsOfAHeader) continue;
    std::string value;
    if (!isSignature(name)) {
      value = RFC2047::decode(headers.rawValue(i));
      value.resize(prefixCharacters(value, kMaximumHeaderValueLength).size());
    }
    rows.emplace_back(std::move(name), std::move(value));
  }
  return rows;
}

}  // namespace ambervane
