#include "doctext/plain_text.h"

#include <algorithm>

#include "base/text.h"
#include "mailcore/charset.h"
#include "mailcore/html_text.h"

namespace ambervane {
namespace {

struct ByteOrderMark {
  std::string_view bytes, charset;
};
/// UTF-32 comes first: its mark begins with that of UTF-16.
constexpr ByteOrderMark kMarks[] = {
    {std::string_view("\xff\xfe\0\0", 4), "UTF-32LE"},
    {std::string_view("\0\0\xfe\xff", 4), "UTF-32BE"},
    {"\xef\xbb\xbf", "UTF-8"},
    {"\xff\xfe", "UTF-16LE"},
    {"\xfe\xff", "UTF-16BE"},
};

/// Without an end cut inside a unit of UTF-16 or UTF-32, which would make all of it unreadable.
BytesView wholeUnits(BytesView bytes, std::string_view charset) {
  const std::size_t unit = charset.starts_with("UTF-32")   ? 4
                           : charset.starts_with("UTF-16") ? 2
                                                           : 1;
  return bytes.substr(0, bytes.size() - bytes.size() % unit);
}

/// Absent for bytes that are no text: those with a NUL, once decoded.
std::optional<std::string> decodeText(BytesView bytes, std::optional<std::string_view> charset) {
  for (const ByteOrderMark& mark : kMarks) {
    if (!bytes.starts_with(mark.bytes)) continue;
    bytes = wholeUnits(bytes.substr(mark.bytes.size()), mark.charset);
    charset = mark.charset;
    break;
  }
  std::string text = Charset::decode(bytes, charset);
  // Some programs end their text with one NUL, or fill it up with them.
  text.resize(text.find_last_not_of('\0') + 1);
  if (text.find('\0') != std::string::npos) return std::nullopt;
  return text;
}

/// The set a page names in a <meta> element or its XML declaration; absent where it names none.
std::optional<std::string> charsetOfPage(BytesView html) {
  // The HTML Standard, section 4.2.5.4: it must stand within the first 1024 bytes.
  const std::string start = asciiLowercase(html.substr(0, 1024));
  for (const std::string_view name : {"charset=", "encoding="}) {
    const std::size_t at = start.find(name);
    if (at == std::string::npos) continue;
    const std::string_view rest = std::string_view(start).substr(at + name.size());
    const std::size_t begin = std::min(rest.find_first_not_of("\"' "), rest.size());
    const std::size_t end = rest.find_first_of("\"' >;/?", begin);
    const std::string_view label = rest.substr(begin, end - begin);
    // A page whose markup could be read in ASCII is none in UTF-16, whatever it says.
    if (!label.starts_with("utf-16")) return std::string(label);
  }
  return std::nullopt;
}

constexpr std::string_view kPropertiesForPeople[] = {
    "SUMMARY",  "DESCRIPTION", "LOCATION", "COMMENT",   "CONTACT",
    "ATTENDEE", "ORGANIZER",   "URL",      "RESOURCES", "CATEGORIES",
};

/// Lines end in CRLF, LF or CR; one that begins with a blank goes on with the line before
/// (section 3.1), in the middle of a character, perhaps.
std::string unfolded(BytesView bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    const char c = bytes[at];
    if (c != '\r' && c != '\n') {
      out.push_back(c);
      continue;
    }
    if (c == '\r' && at + 1 < bytes.size() && bytes[at + 1] == '\n') ++at;
    if (at + 1 < bytes.size() && (bytes[at + 1] == ' ' || bytes[at + 1] == '\t')) {
      ++at;
    } else {
      out.push_back('\n');
    }
  }
  return out;
}

/// Where the name and the parameters of a content line end: at its first ":" outside quotes.
std::size_t valueColon(std::string_view line) {
  bool quoted = false;
  for (std::size_t at = 0; at < line.size(); ++at) {
    if (line[at] == '"') quoted = !quoted;
    if (line[at] == ':' && !quoted) return at;
  }
  return std::string_view::npos;
}

/// The name a parameter CN gives a person.
std::string_view commonName(std::string_view parameters) {
  constexpr std::string_view kName = ";cn=";
  const std::size_t found = asciiLowercase(parameters).find(kName);
  if (found == std::string::npos) return {};
  const std::string_view value = parameters.substr(found + kName.size());
  if (value.starts_with('"')) return value.substr(1, value.find('"', 1) - 1);
  return value.substr(0, value.find(';'));
}

/// Escapes of section 3.3.11.
void appendUnescaped(std::string_view value, TextCollector& collector) {
  std::size_t at = 0;
  for (;;) {
    const std::size_t escape = value.find('\\', at);
    collector.append(value.substr(at, escape - at));
    if (escape == std::string_view::npos || escape + 1 == value.size()) return;
    const char c = value[escape + 1];
    if (c == 'n' || c == 'N') {
      collector.breakLine();
    } else {
      collector.append(value.substr(escape + 1, 1));
    }
    at = escape + 2;
  }
}

void readContentLine(std::string_view line, TextCollector& collector) {
  const std::size_t colon = valueColon(line);
  if (colon == std::string_view::npos) return;
  const std::string_view head = line.substr(0, colon);
  const std::size_t nameEnd = std::min(head.find(';'), head.size());
  const auto isName = [&](std::string_view name) {
    return asciiEqualIgnoringCase(head.substr(0, nameEnd), name);
  };
  if (std::none_of(std::begin(kPropertiesForPeople), std::end(kPropertiesForPeople), isName)) {
    return;
  }
  std::string_view value = line.substr(colon + 1);
  constexpr std::string_view kMailto = "mailto:";
  if (asciiEqualIgnoringCase(value.substr(0, kMailto.size()), kMailto)) {
    value.remove_prefix(kMailto.size());
  }
  collector.append(commonName(head.substr(nameEnd)));
  collector.breakWord();
  appendUnescaped(value, collector);
  collector.breakLine();
}

}  // namespace

bool readPlainText(BytesView bytes, std::optional<std::string_view> charset,
                   TextCollector& collector) {
  const auto text = decodeText(bytes, charset);
  if (!text) return false;
  collector.append(*text);
  return true;
}

bool readHtml(BytesView bytes, std::optional<std::string_view> charset, TextCollector& collector) {
  std::optional<std::string> own;
  if (!charset) own = charsetOfPage(bytes);
  if (own) charset = *own;
  const auto html = decodeText(bytes, charset);
  if (!html) return false;
  collector.append(HTMLText::strip(*html));
  return true;
}

bool readCalendar(BytesView bytes, std::optional<std::string_view> charset,
                  TextCollector& collector) {
  const auto text = decodeText(unfolded(bytes), charset);
  if (!text) return false;
  for (const std::string_view line : split(*text, '\n')) {
    readContentLine(line, collector);
    if (collector.isFull()) break;
  }
  return true;
}

}  // namespace ambervane
