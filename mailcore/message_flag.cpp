#include "mailcore/message_flag.h"

#include <array>
#include <vector>

#include "base/text.h"

namespace ambervane {
namespace {

struct FlagName {
  MessageFlag flag;
  std::string_view name;
};

/// In the order of their text, so that joining them in this order is joining them sorted.
constexpr std::array<FlagName, 6> kFlagNames = {{
    {MessageFlag::answered, "\\Answered"},
    {MessageFlag::deleted, "\\Deleted"},
    {MessageFlag::draft, "\\Draft"},
    {MessageFlag::flagged, "\\Flagged"},
    {MessageFlag::recent, "\\Recent"},
    {MessageFlag::seen, "\\Seen"},
}};

}  // namespace

std::string_view imapName(MessageFlag flag) noexcept {
  for (const FlagName& entry : kFlagNames) {
    if (entry.flag == flag) return entry.name;
  }
  return {};
}

std::optional<MessageFlag> messageFlagFromImap(std::string_view text) noexcept {
  for (const FlagName& entry : kFlagNames) {
    if (asciiEqualIgnoringCase(entry.name, text)) return entry.flag;
  }
  return std::nullopt;
}

std::string flagText(const std::set<MessageFlag>& flags) {
  std::vector<std::string> names;
  for (const FlagName& entry : kFlagNames) {
    if (flags.contains(entry.flag)) names.emplace_back(entry.name);
  }
  return join(names, " ");
}

std::set<MessageFlag> flagsFromText(std::string_view text) {
  std::set<MessageFlag> flags;
  for (const std::string_view word : splitOmittingEmpty(text, " ")) {
    if (const auto flag = messageFlagFromImap(word)) flags.insert(*flag);
  }
  return flags;
}

}  // namespace ambervane
