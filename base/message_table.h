#ifndef AMBERVANE_BASE_MESSAGE_TABLE_H_
#define AMBERVANE_BASE_MESSAGE_TABLE_H_

#include <map>
#include <string_view>

#include "base/report_language.h"

namespace ambervane {

/// English formats and what they are in another language.
using MessageTable = std::map<std::string_view, std::string_view, std::less<>>;

/// Reads a table: pairs of lines, the English one first, divided by empty lines; lines that begin
/// with "//" are for the translator. The views point into `text`. A line without its second is left
/// out. Linear.
MessageTable parseMessageTable(std::string_view text);

/// The table of a language, from `resources/messages_<code>.txt`; that of English is empty. Safe
/// from any thread.
const MessageTable& messageTable(ReportLanguage language);

}  // namespace ambervane

#endif  // AMBERVANE_BASE_MESSAGE_TABLE_H_
