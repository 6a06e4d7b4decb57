#include "base/message_table.h"

#include "base/text.h"
#include "resources/messages_de.h"
#include "resources/messages_es.h"
#include "resources/messages_fr.h"
#include "resources/messages_it.h"

namespace ambervane {

MessageTable parseMessageTable(std::string_view text) {
  MessageTable table;
  std::string_view english;
  for (const std::string_view line : split(text, '\n')) {
    if (line.starts_with("//")) continue;
    if (!english.empty() && !line.empty()) {
      table.emplace(english, line);
      english = {};
    } else {
      english = line;
    }
  }
  return table;
}

const MessageTable& messageTable(ReportLanguage language) {
  // In the order of `ReportLanguage`.
  static const std::array<MessageTable, kReportLanguages.size()> kTables = {
      MessageTable(), parseMessageTable(resources::messagesDe()),
      parseMessageTable(resources::messagesFr()), parseMessageTable(resources::messagesIt()),
      parseMessageTable(resources::messagesEs())};
  return kTables[static_cast<std::size_t>(language)];
}

}  // namespace ambervane
