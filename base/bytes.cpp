#include "base/bytes.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cassert>

namespace ambervane {

BytesView slice(BytesView data, ByteRange range) noexcept {
  const std::size_t end = std::min(range.end, data.size());
  const std::size_t begin = std::min(range.begin, end);
  return data.substr(begin, end - begin);
}

void appendLittleEndian16(Bytes& out, std::uint16_t value) {
  out.push_back(static_cast<char>(value & 0xff));
  out.push_back(static_cast<char>(value >> 8));
}

void appendLittleEndian32(Bytes& out, std::uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) {
    out.push_back(static_cast<char>((value >> shift) & 0xff));
  }
}

std::uint16_t readLittleEndian16(BytesView data, std::size_t offset) noexcept {
  assert(offset + 2 <= data.size());
  return static_cast<std::uint16_t>(static_cast<unsigned char>(data[offset]) |
                                    static_cast<unsigned char>(data[offset + 1]) << 8);
}

std::uint32_t readLittleEndian32(BytesView data, std::size_t offset) noexcept {
  assert(offset + 4 <= data.size());
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    value |= static_cast<std::uint32_t>(static_cast<unsigned char>(data[offset + i])) << (8 * i);
  }
  return value;
}

std::string hexEncode(BytesView bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 15]);
  }
  return text;
}

int hexDigit(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<Bytes> hexDecode(std::string_view digits) {
  if (digits.size() % 2 != 0) return std::nullopt;
  Bytes bytes;
  bytes.reserve(digits.size() / 2);
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const int high = hexDigit(digits[i]);
    const int low = hexDigit(digits[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<char>(high * 16 + low));
  }
  return bytes;
}

std::string base64Encode(BytesView bytes) {
  // EVP takes and returns int, so long inputs go through in pieces of a multiple of three bytes.
  static constexpr std::size_t kPiece = 3U << 20;
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  std::size_t written = 0;
  for (std::size_t at = 0; at < bytes.size(); at += kPiece) {
    const BytesView piece = bytes.substr(at, kPiece);
    written += static_cast<std::size_t>(EVP_EncodeBlock(
        reinterpret_cast<unsigned char*>(text.data() + written),
        reinterpret_cast<const unsigned char*>(piece.data()), static_cast<int>(piece.size())));
  }
  text.resize(written);
  return text;
}

std::optional<Bytes> base64DecodeStrict(std::string_view text) {
  static constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  Bytes bytes;
  std::uint32_t group = 0;
  int bits = 0;
  for (const char c : text.substr(0, text.find('='))) {
    const std::size_t value = kAlphabet.find(c);
    if (value == std::string_view::npos) return std::nullopt;
    group = (group << 6 | static_cast<std::uint32_t>(value)) & 0xffffff;
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes.push_back(static_cast<char>(group >> bits & 0xff));
    }
  }
  if (base64Encode(bytes) != text) return std::nullopt;
  return bytes;
}

}  // namespace ambervane
