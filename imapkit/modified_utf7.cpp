#include "imapkit/modified_utf7.h"

#include <cstdint>
#include <optional>

#include "base/text.h"

namespace ambervane::ModifiedUTF7 {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+,";

bool isDirect(char32_t c) noexcept { return c >= 0x20 && c <= 0x7e; }

/// Base64 of 16-bit units without padding.
class RunWriter {
 public:
  explicit RunWriter(std::string& out) : out_(out) {}
  void put(char32_t c) {
    if (c >= 0x10000) {
      putUnit(0xd800 + ((c - 0x10000) >> 10));
      putUnit(0xdc00 + ((c - 0x10000) & 0x3ff));
    } else {
      putUnit(c);
    }
  }
  void finish() {
    if (count_ > 0) out_ += kDigits[(bits_ << (6 - count_)) & 0x3f];
    count_ = 0;
  }

 private:
  void putUnit(std::uint32_t unit) {
    bits_ = (bits_ << 16) | unit;
    for (count_ += 16; count_ >= 6;) {
      count_ -= 6;
      out_ += kDigits[(bits_ >> count_) & 0x3f];
    }
    bits_ &= (1U << count_) - 1;
  }

  std::string& out_;
  std::uint32_t bits_ = 0;
  unsigned count_ = 0;
};

/// UTF-8 of the digits of one run; absent unless they are whole, well-formed UTF-16.
std::optional<std::string> decodeRun(std::string_view digits) {
  std::string out;
  std::uint32_t bits = 0;
  unsigned count = 0;
  std::uint32_t high = 0;  // a surrogate that waits for its second half
  for (const char c : digits) {
    const std::size_t value = kDigits.find(c);
    if (value == kDigits.npos) return std::nullopt;
    bits = (bits << 6) | static_cast<std::uint32_t>(value);
    count += 6;
    if (count < 16) continue;
    count -= 16;
    const std::uint32_t unit = (bits >> count) & 0xffff;
    bits &= (1U << count) - 1;
    const bool isLow = unit >= 0xdc00 && unit < 0xe000;
    if (isLow != (high != 0)) return std::nullopt;
    if (unit >= 0xd800 && unit < 0xdc00) {
      high = unit;
    } else {
      appendUtf8(out, isLow ? 0x10000 + ((high - 0xd800) << 10) + (unit - 0xdc00) : unit);
      high = 0;
    }
  }
  if (high != 0 || count >= 6 || bits != 0 || out.empty()) return std::nullopt;
  return out;
}

}  // namespace

std::string encode(std::string_view name) {
  std::string out;
  for (std::size_t at = 0; at < name.size();) {
    std::size_t next = at;
    char32_t c = nextCodePoint(name, next);
    if (isDirect(c)) {
      out += name[at];
      if (c == '&') out += '-';
      at = next;
      continue;
    }
    out += '&';
    RunWriter run(out);
    while (!isDirect(c)) {
      run.put(c);
      at = next;
      if (at == name.size()) break;
      c = nextCodePoint(name, next);
    }
    run.finish();
    out += '-';
  }
  return out;
}

std::string decode(std::string_view encoded) {
  std::string out;
  while (!encoded.empty()) {
    const std::size_t direct = encoded.find('&');
    out += encoded.substr(0, direct);
    if (direct == encoded.npos) break;
    encoded.remove_prefix(direct);
    const std::size_t end = encoded.find_first_not_of(kDigits, 1);
    const bool closed = end != encoded.npos && encoded[end] == '-';
    const std::size_t taken = closed ? end + 1 : 1;
    const std::string_view digits = encoded.substr(1, closed ? end - 1 : 0);
    if (closed && digits.empty()) {
      out += '&';
    } else if (const auto run = closed ? decodeRun(digits) : std::nullopt) {
      out += *run;
    } else {
      out += encoded.substr(0, taken);
    }
    encoded.remove_prefix(taken);
  }
  return out;
}

}  // namespace ambervane::ModifiedUTF7
