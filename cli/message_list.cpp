#include "cli/message_list.h"

#include <fmt/format.h>

#include "base/calendar.h"
#include "base/text.h"
#include "cli/display_columns.h"

namespace ambervane {
namespace {

constexpr std::size_t kSubjectCharacters = 70;

std::string dateText(const std::optional<Date>& date) {
  if (!date) return std::string(16, ' ');
  const CivilTime local = localCivilTime(*date);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", local.year, local.month, local.day,
                     local.hour, local.minute);
}

}  // namespace

std::string displaySender(const MessageRow& row) {
  if (row.fromName && !trim(*row.fromName).empty()) return printable(*row.fromName);
  return printable(row.fromAddress.value_or(""));
}

std::string wordsFrom(const Arguments& arguments, std::size_t first) {
  std::string line;
  for (std::size_t i = first; i < arguments.positional.size(); ++i) {
    if (i > first) line += ' ';
    line += arguments.positional[i];
  }
  return line;
}

void printHits(const SearchResult& result, std::ostream& out) {
  out << result.totalMatches << " matches in " << fmt::format("{:.0f}", result.elapsed * 1000)
      << " ms" << (result.usedFullText ? " (full text)" : "") << "\n";
  for (const SearchHit& hit : result.hits) {
    const MessageRow& row = hit.message;
    out << fmt::format("{:<7.7} ", std::to_string(row.id)) << dateText(row.sentAt) << ' '
        << (row.attachmentCount > 0 ? "📎" : "  ") << ' '
        << fitted(displaySender(row), kSenderColumns) << ' '
        << cutToCharacters(printable(row.subject), kSubjectCharacters) << "\n";
  }
}

void noteUnrecorded(const MailArchive& archive, std::ostream& out) {
  if (archive.storage() == StorageAccess::writable) return;
  out << "Note : not recorded in the archive's journal — it is kept where nothing can be "
         "written\n";
}

}  // namespace ambervane
