#include "mailformats/emlx.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>
#include <variant>

#include "base/text.h"
#include "mailformats/message_file.h"

namespace ambervane::EMLX {
namespace {

struct FlagBit {
  unsigned bit;
  MessageFlag flag;
};

constexpr std::array<FlagBit, 5> kFlagBits = {{
    {0, MessageFlag::seen},
    {1, MessageFlag::answered},
    {2, MessageFlag::flagged},
    {3, MessageFlag::deleted},
    {6, MessageFlag::draft},
}};

template <typename Value>
const Value* valueOf(const PropertyDictionary& plist, std::string_view key) {
  const auto found = plist.find(key);
  return found == plist.end() ? nullptr : std::get_if<Value>(&found->second);
}

std::set<MessageFlag> flags(const PropertyDictionary& plist) {
  std::set<MessageFlag> flags;
  const auto* const bits = valueOf<std::int64_t>(plist, "flags");
  if (bits == nullptr) return flags;
  for (const auto& [bit, flag] : kFlagBits) {
    if ((static_cast<std::uint64_t>(*bits) >> bit & 1) != 0) flags.insert(flag);
  }
  return flags;
}

std::optional<Date> dateReceived(const PropertyDictionary& plist) {
  if (const auto* const whole = valueOf<std::int64_t>(plist, "date-received")) {
    return dateFromSeconds(static_cast<double>(*whole));
  }
  if (const auto* const real = valueOf<double>(plist, "date-received")) {
    return dateFromSeconds(*real);
  }
  return std::nullopt;
}

std::optional<std::string> remoteID(const PropertyDictionary& plist) {
  if (const auto* const number = valueOf<std::int64_t>(plist, "remote-id")) {
    return std::to_string(*number);
  }
  if (const auto* const text = valueOf<std::string>(plist, "remote-id")) return *text;
  return std::nullopt;
}

}  // namespace

std::optional<Parsed> parse(BytesView file) {
  const std::size_t lineEnd = std::min(file.find('\n'), file.size());
  const std::string_view digits = trim(file.substr(0, lineEnd));
  const auto length = parseInteger(digits);
  if (!length || !isAsciiDigit(digits.front())) return std::nullopt;
  Parsed parsed;
  parsed.message.begin = std::min(lineEnd + 1, file.size());
  const std::size_t rest = file.size() - parsed.message.begin;
  parsed.message.end = parsed.message.begin + static_cast<std::size_t>(std::min<std::uint64_t>(
                                                  static_cast<std::uint64_t>(*length), rest));
  if (auto plist = parsePropertyList(file.substr(parsed.message.end))) {
    parsed.plist = *std::move(plist);
  }
  parsed.flags = flags(parsed.plist);
  parsed.dateReceived = dateReceived(parsed.plist);
  parsed.remoteID = remoteID(parsed.plist);
  return parsed;
}

}  // namespace ambervane::EMLX
