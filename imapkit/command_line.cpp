#include "imapkit/command_line.h"

#include <algorithm>
#include <array>
#include <vector>

#include "base/calendar.h"
#include "base/text.h"

namespace ambervane {
namespace {

constexpr const char* kInternalDatePattern = "dd-MMM-yyyy HH:mm:ss Z";

}  // namespace

std::string quotedString(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted += '"';
}

bool isOneLine(std::string_view command) noexcept {
  return command.find_first_of(std::string_view("\r\n\0", 3)) == command.npos;
}

std::string commandVerb(std::string_view command) {
  const std::vector<std::string_view> words = splitOmittingEmpty(command, " ");
  const bool isUid = words.size() > 1 && asciiEqualIgnoringCase(words[0], "UID");
  if (words.empty()) return {};
  return asciiUppercase(words[isUid ? 1 : 0]);
}

bool modifiesMailbox(std::string_view verb) noexcept {
  static constexpr std::array<std::string_view, 15> kVerbs = {
      "STORE",  "APPEND",    "EXPUNGE",  "COPY",        "MOVE",
      "CREATE", "DELETE",    "RENAME",   "SUBSCRIBE",   "UNSUBSCRIBE",
      "SETACL", "DELETEACL", "SETQUOTA", "SETMETADATA", "SELECT"};
  return std::find(kVerbs.begin(), kVerbs.end(), verb) != kVerbs.end();
}

std::string searchDate(Date date) { return formatDate(date, "dd-MMM-yyyy"); }

std::string internalDateText(Date date) { return formatDate(date, kInternalDatePattern); }

std::optional<Date> parseInternalDate(std::string_view text) {
  const std::string_view trimmed = trimOf(text, " ");
  std::string padded(trimmed.find('-') == 1 ? 1 : 0, '0');
  padded += trimmed;
  return parseDate(padded, kInternalDatePattern);
}

}  // namespace ambervane
