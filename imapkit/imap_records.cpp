#include "imapkit/imap_records.h"

#include <array>

#include "base/text.h"

namespace ambervane {

bool IMAPFolder::isInbox() const noexcept { return asciiEqualIgnoringCase(path, "INBOX"); }

std::optional<std::string> IMAPFolder::specialUse() const {
  static constexpr std::array kUses = {"all",  "archive", "drafts", "flagged",
                                       "junk", "sent",    "trash"};
  for (const std::string use : kUses) {
    if (attributes.contains("\\" + use)) return use;
  }
  return std::nullopt;
}

}  // namespace ambervane
