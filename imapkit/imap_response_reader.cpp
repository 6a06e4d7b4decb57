#include "imapkit/imap_response_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "imapkit/imap_error.h"

namespace ambervane {
namespace {

[[noreturn]] void refuse(std::string text) {
  throw IMAPError(IMAPError::ProtocolViolation{std::move(text)});
}

[[noreturn]] void refuseExcess() {
  refuse("the server announced more data in one response than a mail server sends");
}

/// A line as text. A NUL, which no server may send, would be taken for a literal.
std::string lineText(std::string_view line) {
  std::string text = repairedUtf8(line);
  for (std::size_t at = 0; (at = text.find('\0', at)) != text.npos;) text.replace(at, 1, "�");
  return text;
}

/// The size of a literal, none of which may be larger than a whole response.
std::size_t literalSize(std::string_view digits) {
  const auto size = parseInteger(digits);
  if (!size || *size > static_cast<std::int64_t>(kMaxLiteralBytes)) {
    refuse(fmt::format("the server announced {} bytes in one piece", digits));
  }
  return static_cast<std::size_t>(*size);
}

}  // namespace

IMAPResponse IMAPResponseReader::read() {
  std::string text;
  std::vector<Bytes> literals;
  std::size_t total = 0;
  for (;;) {
    const std::string line = lineText(stream_.readLine());
    if (text.size() + line.size() > kMaxResponseText) refuseExcess();
    const auto digits = announcedLiteralSize(line);
    if (!digits) {
      text += line;
      return parseResponse(std::move(text), std::move(literals));
    }
    const std::size_t size = literalSize(*digits);
    total += size;
    if (literals.size() == kMaxLiterals || total > kMaxLiteralBytes) refuseExcess();
    text.append(line, 0, line.rfind('{')).push_back('\0');
    literals.push_back(stream_.readBytes(size));
  }
}

}  // namespace ambervane
