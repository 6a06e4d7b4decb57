#include "mailformats/mbox_format.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <span>
#include <string>
#include <string_view>

#include "base/text.h"
#include "mailcore/header_set.h"
#include "mailcore/mail_date.h"

// The format has no standard beyond RFC 4155; what the readers and writers of four decades have in
// common is a line "From sender date" before each message and an empty line behind it. Everything
// here is one pass over the bytes, so that a file of any size or malice costs what its length says.

namespace ambervane {
namespace {

constexpr std::string_view kFrom = "From ";
constexpr std::size_t kMaxEnvelopeBytes = 1000;  // what follows in a longer line is no date

/// Calls `visit` with the position and number of the ">" before each "From " that stands, behind
/// nothing but these, at the start of a line.
template <typename Visit>
void forEachQuotedFrom(BytesView content, Visit visit) {
  static constexpr std::string_view kQuotedFrom = ">From ";
  for (std::size_t at = content.find(kQuotedFrom); at != BytesView::npos;
       at = content.find(kQuotedFrom, at + kQuotedFrom.size())) {
    std::size_t begin = at;
    while (begin > 0 && content[begin - 1] == '>') --begin;
    if (begin == 0 || content[begin - 1] == '\n') visit(begin, at + 1 - begin);
  }
}

/// Cuts the body to what a Content-Length field says, when the body has that much.
void applyContentLength(Bytes& message, const HeaderSet& headers, std::size_t bodyBegin) {
  const std::string_view digits = trim(headers["content-length"].value_or(""));
  if (!std::all_of(digits.begin(), digits.end(), isAsciiDigit)) return;
  const auto length = parseInteger(digits);
  if (length && static_cast<std::uint64_t>(*length) <= message.size() - bodyBegin) {
    message.resize(bodyBegin + static_cast<std::size_t>(*length));
  }
}

void addFlags(std::string_view letters, std::set<MessageFlag>& flags) {
  for (const char letter : letters) {
    switch (letter) {
      case 'R':
      case 'O':
        flags.insert(MessageFlag::seen);
        break;
      case 'A':
        flags.insert(MessageFlag::answered);
        break;
      case 'F':
        flags.insert(MessageFlag::flagged);
        break;
      case 'D':
        flags.insert(MessageFlag::deleted);
        break;
      case 'T':
        flags.insert(MessageFlag::draft);
        break;
      default:
        break;
    }
  }
}

std::set<MessageFlag> statusFlags(const HeaderSet& headers) {
  std::set<MessageFlag> flags;
  addFlags(headers["status"].value_or(""), flags);
  addFlags(headers["x-status"].value_or(""), flags);
  const std::string_view digits = trim(headers["x-mozilla-status"].value_or(""));
  std::uint16_t bits = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, bits, 16);
  if (error != std::errc{} || stop != end) return flags;
  if ((bits & 1) != 0) flags.insert(MessageFlag::seen);
  if ((bits & 2) != 0) flags.insert(MessageFlag::answered);
  if ((bits & 4) != 0) flags.insert(MessageFlag::flagged);
  if ((bits & 8) != 0) flags.insert(MessageFlag::deleted);
  return flags;
}

bool isYear(std::string_view word) noexcept {
  return word.size() == 4 && std::all_of(word.begin(), word.end(), isAsciiDigit);
}

/// The words "Mon Feb 5 10:00:00 +0100 2024", zone optional and before or behind the year, in the
/// order a Date field has them; absent for any other words.
std::optional<std::string> dateFieldOrder(std::span<const std::string_view> words) {
  if (words.size() < 5 || words.size() > 6) return std::nullopt;
  const bool zoneFirst = !isYear(words[4]);
  if (zoneFirst && (words.size() == 5 || !isYear(words[5]))) return std::nullopt;
  std::string field;
  for (const std::string_view word : {words[2], words[1], words[zoneFirst ? 5 : 4], words[3],
                                      words.size() == 6 ? words[zoneFirst ? 4 : 5] : "UTC"}) {
    field += word;
    field.push_back(' ');
  }
  return field;
}

/// Whether a word can open a date in asctime's form.
bool isWeekday(std::string_view word) noexcept {
  static constexpr std::array<std::string_view, 7> kDays = {"mon", "tue", "wed", "thu",
                                                            "fri", "sat", "sun"};
  return std::any_of(kDays.begin(), kDays.end(),
                     [&](std::string_view day) { return asciiEqualIgnoringCase(word, day); });
}

}  // namespace

std::size_t nextMboxStart(BytesView file, std::size_t from) noexcept {
  static constexpr std::string_view kLineFrom = "\nFrom ";
  if (from == 0 && file.starts_with(kFrom)) return 0;
  for (std::size_t at = file.find(kLineFrom, from == 0 ? 0 : from - 1); at != BytesView::npos;
       at = file.find(kLineFrom, at + 1)) {
    if (at == 0 || file[at - 1] == '\n' || file[at - 1] == '\r') return at + 1;
  }
  return BytesView::npos;
}

MboxVariant detectMboxVariant(BytesView content) noexcept {
  if (content.find("\nContent-Length:") != BytesView::npos) return MboxVariant::mboxcl2;
  bool deeplyQuoted = false;
  forEachQuotedFrom(content, [&](std::size_t, std::size_t count) { deeplyQuoted |= count > 1; });
  return deeplyQuoted ? MboxVariant::mboxrd : MboxVariant::mboxo;
}

Bytes unescapeMbox(BytesView content, MboxVariant variant) {
  Bytes out;
  out.reserve(content.size());
  std::size_t copied = 0;
  if (variant == MboxVariant::detected) variant = detectMboxVariant(content);
  if (variant != MboxVariant::mboxcl2) {
    forEachQuotedFrom(content, [&](std::size_t at, std::size_t count) {
      if (variant == MboxVariant::mboxo && count != 1) return;
      out += content.substr(copied, at - copied);
      copied = at + 1;
    });
  }
  out += content.substr(copied);
  return out;
}

BytesView withoutSeparator(BytesView content) noexcept {
  BytesView rest = content;
  if (!rest.ends_with('\n')) return content;
  rest.remove_suffix(1);
  if (rest.ends_with('\r')) rest.remove_suffix(1);
  return rest.empty() || rest.ends_with('\n') ? rest : content;
}

std::optional<Date> mboxEnvelopeDate(BytesView line) {
  const std::string text = repairedUtf8(trim(line.substr(0, kMaxEnvelopeBytes)));
  if (!text.starts_with(kFrom)) return std::nullopt;
  const auto words = splitOmittingEmpty(text, " \t");
  // Some archives write the address as "name at host", so the date is looked for by its weekday.
  for (std::size_t at = 1; at < words.size(); ++at) {
    if (!isWeekday(words[at])) continue;
    if (const auto field = dateFieldOrder(std::span(words).subspan(at))) {
      return MailDate::parse(*field);
    }
  }
  if (words.size() < 3) return std::nullopt;
  return MailDate::parse(
      std::string_view(text).substr(static_cast<std::size_t>(words[2].data() - text.data())));
}

MboxMessage readMboxSegment(BytesView segment, MboxVariant variant) {
  // A file from before Mac OS X has CR for its line ends; without this its one message would be
  // lost.
  const char lineFeed = segment.find('\n') != BytesView::npos ? '\n' : '\r';
  const std::size_t lineEnd = std::min(segment.find(lineFeed), segment.size());
  const BytesView content = segment.substr(std::min(lineEnd + 1, segment.size()));
  MboxMessage message;
  message.internalDate = mboxEnvelopeDate(segment.substr(0, lineEnd));
  message.raw = unescapeMbox(withoutSeparator(content), variant);
  const HeaderSplit split = splitHeaderAndBody(message.raw);
  const HeaderSet headers = HeaderSet::parse(BytesView(message.raw).substr(0, split.headerEnd));
  message.flags = statusFlags(headers);
  applyContentLength(message.raw, headers, split.bodyBegin);
  return message;
}

}  // namespace ambervane
