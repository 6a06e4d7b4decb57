#include "mailcore/looks_like_mail.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "base/text.h"
#include "mailcore/header_set.h"

namespace ambervane {

bool looksLikeMail(BytesView data) {
  static constexpr std::size_t kExaminedBytes = 65'536;
  static constexpr std::array<std::string_view, 12> kNames = {
      "from",       "to",       "cc",          "bcc",    "subject",      "date",
      "message-id", "received", "return-path", "sender", "delivered-to", "mime-version"};
  data = data.substr(0, kExaminedBytes);
  if (data.starts_with("\xef\xbb\xbf")) data.remove_prefix(3);
  LineReader lines(data);
  while (const auto line = lines.next()) {
    if (line->empty() || line->front() == ' ' || line->front() == '\t') continue;
    const auto name = fieldName(*line);
    if (!name) continue;
    const auto isName = [&](std::string_view known) {
      return asciiEqualIgnoringCase(known, *name);
    };
    if (std::any_of(kNames.begin(), kNames.end(), isName)) return true;
  }
  return false;
}

}  // namespace ambervane
