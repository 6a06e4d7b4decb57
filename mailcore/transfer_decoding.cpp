#include "mailcore/transfer_decoding.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

#include "base/text.h"

namespace ambervane {
namespace {

struct EncodingName {
  TransferEncoding encoding;
  std::string_view name;
};
constexpr std::array<EncodingName, 6> kEncodingNames = {{
    {TransferEncoding::sevenBit, "7bit"},
    {TransferEncoding::eightBit, "8bit"},
    {TransferEncoding::binary, "binary"},
    {TransferEncoding::base64, "base64"},
    {TransferEncoding::quotedPrintable, "quoted-printable"},
    {TransferEncoding::unknown, "unknown"},
}};

constexpr std::uint32_t kNoDigit = 0xff000000;

using DigitTable = std::array<std::uint32_t, 256>;

/// The value of each base64 digit, moved left by `shift` bits, so that a group of four is three
/// ORs and one test.
constexpr DigitTable makeDigitTable(int shift) {
  constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  DigitTable table{};
  table.fill(kNoDigit);
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint32_t>(i) << shift;
  }
  return table;
}
constexpr DigitTable kDigit1 = makeDigitTable(18);
constexpr DigitTable kDigit2 = makeDigitTable(12);
constexpr DigitTable kDigit3 = makeDigitTable(6);
constexpr DigitTable kDigit4 = makeDigitTable(0);

char* putGroup(char* out, std::uint32_t group) noexcept {
  out[0] = static_cast<char>(group >> 16);
  out[1] = static_cast<char>(group >> 8);
  out[2] = static_cast<char>(group);
  return out + 3;
}

/// The length of the line end at `at`: 2 for CRLF, 1 for LF, else 0.
std::size_t lineEndAt(BytesView data, std::size_t at) noexcept {
  if (at < data.size() && data[at] == '\n') return 1;
  if (at + 1 < data.size() && data[at] == '\r' && data[at + 1] == '\n') return 2;
  return 0;
}

/// Whether what follows at `at`, behind any soft line breaks, is a real line end.
bool realLineEndFollows(BytesView data, std::size_t at) noexcept {
  while (at < data.size() && data[at] == '=') {
    const std::size_t lineEnd = lineEndAt(data, at + 1);
    if (lineEnd == 0) return false;
    at += 1 + lineEnd;
  }
  return lineEndAt(data, at) != 0;
}

}  // namespace

TransferEncoding transferEncodingFromHeader(std::optional<std::string_view> value) {
  const std::string name = lowercase(trim(value.value_or("")));
  if (name.empty()) return TransferEncoding::sevenBit;
  for (const EncodingName& entry : kEncodingNames) {
    if (entry.name == name) return entry.encoding;
  }
  return TransferEncoding::unknown;
}

std::string_view transferEncodingName(TransferEncoding encoding) noexcept {
  for (const EncodingName& entry : kEncodingNames) {
    if (entry.encoding == encoding) return entry.name;
  }
  return "unknown";
}

BytesView DecodedBytes::view() const noexcept {
  if (const auto* const owned = std::get_if<Bytes>(&bytes_)) return *owned;
  return *std::get_if<BytesView>(&bytes_);
}

Bytes DecodedBytes::take() && {
  if (auto* const owned = std::get_if<Bytes>(&bytes_)) return std::move(*owned);
  return Bytes(view());
}

namespace ContentTransferDecoder {

Bytes decodeBase64(BytesView data) {
  Bytes out(data.size() / 4 * 3 + 3, '\0');
  const auto* in = reinterpret_cast<const unsigned char*>(data.data());
  const auto* const end = in + data.size();
  char* write = out.data();
  std::uint32_t group = 0;
  int digits = 0;
  while (in < end) {
    if (digits == 0) {
      while (end - in >= 4) {
        const std::uint32_t four =
            kDigit1[in[0]] | kDigit2[in[1]] | kDigit3[in[2]] | kDigit4[in[3]];
        if (four >= kNoDigit) break;
        write = putGroup(write, four);
        in += 4;
      }
      if (in == end) break;
    }
    const unsigned char byte = *in++;
    if (byte == '=') break;
    const std::uint32_t digit = kDigit4[byte];
    if (digit == kNoDigit) continue;
    group = group << 6 | digit;
    if (++digits == 4) {
      write = putGroup(write, group);
      group = 0;
      digits = 0;
    }
  }
  if (digits == 3) *write++ = static_cast<char>(group >> 10);
  if (digits == 3) *write++ = static_cast<char>(group >> 2);
  if (digits == 2) *write++ = static_cast<char>(group >> 4);
  out.resize(static_cast<std::size_t>(write - out.data()));
  return out;
}

Bytes decodeQuotedPrintable(BytesView data) {
  Bytes out;
  out.reserve(data.size());
  std::size_t at = 0;
  while (at < data.size()) {
    const std::size_t equals = std::min(data.find('=', at), data.size());
    out.append(data, at, equals - at);
    if (equals == data.size()) break;
    at = equals + 1;
    if (const std::size_t lineEnd = lineEndAt(data, at)) {
      at += lineEnd;
      continue;
    }
    const int high = at + 1 < data.size() ? hexDigit(data[at]) : -1;
    const int low = at + 1 < data.size() ? hexDigit(data[at + 1]) : -1;
    if (high < 0 || low < 0) {
      out.push_back('=');
      continue;
    }
    at += 2;
    const char byte = static_cast<char>(high * 16 + low);
    // Some encoders write the CR of a line end as "=0D" and then end the line as well.
    if (byte != '\r' || !realLineEndFollows(data, at)) out.push_back(byte);
  }
  return out;
}

int base64Digit(char c) noexcept {
  const std::uint32_t digit = kDigit4[static_cast<unsigned char>(c)];
  return digit == kNoDigit ? -1 : static_cast<int>(digit);
}

Bytes decodeHexEscapes(std::string_view text, char escape) {
  Bytes bytes;
  bytes.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == escape && at + 2 < text.size()) {
      const int high = hexDigit(text[at + 1]);
      const int low = hexDigit(text[at + 2]);
      if (high >= 0 && low >= 0) {
        bytes.push_back(static_cast<char>(high * 16 + low));
        at += 2;
        continue;
      }
    }
    bytes.push_back(text[at]);
  }
  return bytes;
}

Bytes encodeBase64Wrapped(BytesView data, std::size_t lineLength) {
  const std::string text = base64Encode(data);
  const std::size_t step = lineLength == 0 ? 1 : lineLength;
  Bytes out;
  out.reserve(text.size() + 2 * (text.size() / step + 1));
  for (std::size_t at = 0; at < text.size(); at += std::min(step, text.size() - at)) {
    out.append(text, at, step);
    out += "\r\n";
  }
  return out;
}

DecodedBytes decode(BytesView data, TransferEncoding encoding) {
  switch (encoding) {
    case TransferEncoding::base64:
      return DecodedBytes(decodeBase64(data));
    case TransferEncoding::quotedPrintable:
      return DecodedBytes(decodeQuotedPrintable(data));
    case TransferEncoding::sevenBit:
    case TransferEncoding::eightBit:
    case TransferEncoding::binary:
    case TransferEncoding::unknown:
      break;
  }
  return DecodedBytes(data);
}

}  // namespace ContentTransferDecoder
}  // namespace ambervane
