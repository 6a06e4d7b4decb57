#ifndef AMBERVANE_DOCTEXT_PLAIN_TEXT_H_
#define AMBERVANE_DOCTEXT_PLAIN_TEXT_H_

#include <optional>
#include <string>
#include <string_view>

#include "base/bytes.h"
#include "doctext/text_collector.h"

namespace ambervane {

// Readers of attachments that are text already. Pure, total, linear, without recursion. `charset`
// is the label the attachment came with, if any. A reader returns false for bytes that are no text.

/// Text in the set a byte order mark tells, else the label, else as mail without a label is read.
bool readPlainText(BytesView bytes, std::optional<std::string_view> charset,
                   TextCollector& collector);

/// Where there is no label, the set the page itself names counts.
bool readHtml(BytesView bytes, std::optional<std::string_view> charset, TextCollector& collector);

/// What people read of iCalendar (RFC 5545): titles, descriptions, places and persons.
bool readCalendar(BytesView bytes, std::optional<std::string_view> charset,
                  TextCollector& collector);

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_PLAIN_TEXT_H_
