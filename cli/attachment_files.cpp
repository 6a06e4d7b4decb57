#include "cli/attachment_files.h"

#include <fmt/format.h>

#include "base/text.h"

namespace ambervane {
namespace {

constexpr std::size_t kMaximumNameBytes = 200;

}  // namespace

std::string displayName(const AttachmentRow& attachment) {
  if (attachment.filename && !attachment.filename->empty()) return *attachment.filename;
  return "attachment-" + attachment.section;
}

std::string safeFileName(std::string_view name) {
  std::string clean;
  for (std::size_t at = 0; at < name.size();) {
    const char32_t c = nextCodePoint(name, at);
    // Marks that turn the direction of writing can make "fdp.exe" look like "exe.pdf".
    const bool turnsText = (c >= 0x200e && c <= 0x200f) || (c >= 0x202a && c <= 0x202e) ||
                           (c >= 0x2066 && c <= 0x2069);
    if (c < 0x20 || (c >= 0x7f && c < 0xa0) || turnsText) continue;
    appendUtf8(clean, c);
  }
  std::string_view last = clean;
  if (const auto cut = last.find_last_of("/\\"); cut != std::string_view::npos) {
    last = last.substr(cut + 1);
  }
  last = trim(last);
  while (last.starts_with('.')) last = trim(last.substr(1));
  if (last.size() > kMaximumNameBytes) {
    // The extension says what the file is, so the cut is made in front of it.
    const auto dot = last.rfind('.');
    const std::string_view extension =
        dot != std::string_view::npos && last.size() - dot <= 16 ? last.substr(dot) : "";
    std::size_t end = kMaximumNameBytes - extension.size();
    while ((last[end] & 0xc0) == 0x80) --end;
    return std::string(last.substr(0, end)) + std::string(extension);
  }
  return last.empty() ? "attachment" : std::string(last);
}

std::string UniqueNames::claim(const std::string& name) {
  const auto dot = name.rfind('.');
  const bool hasExtension = dot != std::string::npos && dot > 0;
  const std::string stem = hasExtension ? name.substr(0, dot) : name;
  const std::string extension = hasExtension ? name.substr(dot) : "";
  std::string candidate = name;
  if (!taken_.insert(lowercase(candidate)).second) {
    // Where the counting for this name stopped last, so that many equal names stay cheap.
    int& number = next_.try_emplace(lowercase(name), 2).first->second;
    do {
      candidate = fmt::format("{} ({}){}", stem, number++, extension);
    } while (!taken_.insert(lowercase(candidate)).second);
  }
  return candidate;
}

}  // namespace ambervane
