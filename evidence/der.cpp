#include "evidence/der.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "base/calendar.h"
#include "base/text.h"

namespace ambervane::DER {
namespace {

std::uint8_t byteAt(BytesView in, std::size_t at) noexcept {
  return static_cast<std::uint8_t>(in[at]);
}

/// `value` big-endian in the fewest bytes, at least one.
Bytes bigEndian(std::uint64_t value) {
  Bytes bytes;
  do {
    bytes.insert(bytes.begin(), static_cast<char>(value & 0xff));
    value >>= 8;
  } while (value != 0);
  return bytes;
}

void appendBase128(Bytes& out, std::uint64_t value) {
  Bytes bytes(1, static_cast<char>(value & 0x7f));
  while ((value >>= 7) != 0) {
    bytes.insert(bytes.begin(), static_cast<char>(0x80 | (value & 0x7f)));
  }
  out += bytes;
}

/// The decimal number of digits already looked at.
int decimal(std::string_view digits) noexcept {
  int value = 0;
  for (const char digit : digits) value = value * 10 + (digit - '0');
  return value;
}

bool areDigits(std::string_view text) noexcept {
  return std::all_of(text.begin(), text.end(), isAsciiDigit);
}

}  // namespace

Bytes length(std::size_t n) {
  if (n < 0x80) return Bytes(1, static_cast<char>(n));
  const Bytes bytes = bigEndian(n);
  return Bytes(1, static_cast<char>(0x80 | bytes.size())) + bytes;
}

Bytes encode(std::uint8_t tag, BytesView body) {
  Bytes out(1, static_cast<char>(tag));
  out += length(body.size());
  out += body;
  return out;
}

Bytes sequence(std::initializer_list<Bytes> parts) {
  Bytes body;
  for (const Bytes& part : parts) body += part;
  return encode(kSequence, body);
}

Bytes integer(std::uint64_t value) { return integer(bigEndian(value)); }

Bytes integer(BytesView bytes) {
  while (bytes.size() > 1 && bytes.front() == '\0') bytes.remove_prefix(1);
  // With its top bit set the first byte would make the number negative; no byte at all is no
  // number.
  const bool needsZero = bytes.empty() || (byteAt(bytes, 0) & 0x80) != 0;
  return encode(kInteger, Bytes(needsZero ? 1 : 0, '\0').append(bytes));
}

Bytes octetString(BytesView data) { return encode(kOctetString, data); }

Bytes boolean(bool value) { return encode(kBoolean, BytesView(value ? "\xff" : "\0", 1)); }

Bytes null() { return encode(kNull, {}); }

Bytes objectIdentifier(std::string_view dotted) {
  std::vector<std::uint64_t> arcs;
  for (const std::string_view arc : split(dotted, '.')) {
    arcs.push_back(static_cast<std::uint64_t>(parseInteger(arc).value_or(0)));
  }
  assert(arcs.size() >= 2);
  Bytes body;
  appendBase128(body, 40 * arcs[0] + arcs[1]);
  for (std::size_t i = 2; i < arcs.size(); ++i) appendBase128(body, arcs[i]);
  return encode(kObjectIdentifier, body);
}

std::optional<Element> element(BytesView in, std::size_t at) noexcept {
  if (at >= in.size() || in.size() - at < 2) return std::nullopt;
  const std::uint8_t tag = byteAt(in, at);
  if ((tag & 0x1f) == 0x1f) return std::nullopt;
  std::size_t begin = at + 2;
  std::size_t size = byteAt(in, at + 1);
  if (size >= 0x80) {
    const std::size_t count = size & 0x7f;
    if (count == 0 || count > sizeof(std::size_t) || count > in.size() - begin) return std::nullopt;
    size = 0;
    for (std::size_t i = 0; i < count; ++i) size = size << 8 | byteAt(in, begin + i);
    begin += count;
  }
  if (size > in.size() - begin) return std::nullopt;
  return Element{.tag = tag, .start = at, .contents = {begin, begin + size}};
}

std::vector<Element> children(const Element& of, BytesView in) {
  std::vector<Element> found;
  if (!of.isConstructed()) return found;
  const BytesView inside = in.substr(0, of.end());
  for (auto child = element(inside, of.contents.begin); child;
       child = element(inside, child->end())) {
    found.push_back(*child);
  }
  return found;
}

std::optional<Element> firstElement(BytesView in, std::uint8_t tag, std::size_t from,
                                    std::size_t to, std::size_t depth,
                                    const std::function<bool(const Element&)>& where) {
  struct Level {
    std::size_t at;
    std::size_t end;
  };
  if (depth > kMaximumDepth) return std::nullopt;
  std::array<Level, kMaximumDepth + 1> levels{};
  std::size_t open = 0;
  levels[open++] = {from, to};
  while (open > 0) {
    Level& level = levels[open - 1];
    const auto next = element(in.substr(0, level.end), level.at);
    if (!next) {
      --open;
      continue;
    }
    if (next->tag == tag && (!where || where(*next))) return next;
    level.at = next->end();
    if (next->isConstructed() && depth + open <= kMaximumDepth) {
      levels[open++] = {next->contents.begin, next->end()};
    }
  }
  return std::nullopt;
}

BytesView body(const Element& of, BytesView in) noexcept { return slice(in, of.contents); }

std::optional<std::int64_t> integerValue(const Element& of, BytesView in) noexcept {
  const BytesView bytes = body(of, in);
  if (of.tag != kInteger || bytes.empty() || bytes.size() > 8) return std::nullopt;
  // All bits of the sign first, then the bytes pushed in from the right.
  std::uint64_t value = (byteAt(bytes, 0) & 0x80) != 0 ? ~std::uint64_t{0} : 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) value = value << 8 | byteAt(bytes, i);
  return static_cast<std::int64_t>(value);
}

std::optional<Date> generalizedTime(const Element& of, BytesView in) {
  constexpr std::size_t kWholeSeconds = 14;
  constexpr int kLastYear = 9999;
  BytesView text = body(of, in);
  if (of.tag != kGeneralizedTime || text.size() <= kWholeSeconds || !text.ends_with('Z')) {
    return std::nullopt;
  }
  text.remove_suffix(1);
  const std::string_view whole = text.substr(0, kWholeSeconds);
  std::string_view fraction = text.substr(kWholeSeconds);
  // There is no year 0 and, but for a leap second, none behind the last: a seal that named them
  // could not be read again.
  if (!areDigits(whole) || whole.starts_with("0000")) return std::nullopt;
  double part = 0;
  if (!fraction.empty()) {
    if (fraction.front() != '.' || fraction.size() < 2) return std::nullopt;
    fraction.remove_prefix(1);
    if (!areDigits(fraction)) return std::nullopt;
    double scale = 1;
    for (const char digit : fraction) part += (digit - '0') * (scale /= 10);
  }
  const auto date = dateFromCivil({.year = decimal(whole.substr(0, 4)),
                                   .month = decimal(whole.substr(4, 2)),
                                   .day = decimal(whole.substr(6, 2)),
                                   .hour = decimal(whole.substr(8, 2)),
                                   .minute = decimal(whole.substr(10, 2)),
                                   .second = decimal(whole.substr(12, 2)) + part});
  return date && civilTime(*date).year <= kLastYear ? date : std::nullopt;
}

}  // namespace ambervane::DER
