#include "mailcore/header_set.h"

#include <string.h>  // memmem

#include <algorithm>
#include <limits>

#include "base/text.h"
#include "mailcore/charset.h"
#include "mailcore/rfc2047.h"

namespace ambervane {
namespace {

/// A field whose lines are still being read.
struct PendingField {
  bool open = false;
  std::string name;  // empty for a line that is no field
  BytesView first;   // the value on the field's own line
  Bytes folded;      // the whole value, filled only when there is a second line

  void start(BytesView line) {
    open = true;
    folded.clear();
    if (auto found = fieldName(line)) {
      name = *std::move(found);
      first = line.substr(line.find(':') + 1);
    } else {
      name.clear();
      first = line;
    }
  }
  void addLine(BytesView line) {
    if (!open) return;
    if (folded.empty()) folded = first;
    folded += line;
  }
  BytesView value() const { return folded.empty() ? first : BytesView(folded); }
};

}  // namespace

std::string HeaderField::lowercasedName() const { return lowercase(name); }
std::string HeaderField::decodedValue() const { return RFC2047::decode(rawValue); }

HeaderSet::HeaderSet(const std::vector<HeaderField>& fields) {
  for (const HeaderField& field : fields) append(field);
}

HeaderSet HeaderSet::parse(BytesView data) {
  HeaderSet set;
  set.text_.reserve(data.size());
  set.entries_.reserve(static_cast<std::size_t>(std::count(data.begin(), data.end(), '\n')) + 1);
  PendingField pending;
  const auto flush = [&] {
    if (!pending.open) return;
    const BytesView value = pending.value();
    if (isValidUtf8(value)) {
      set.append(pending.name, value);
    } else {
      set.append(pending.name, Charset::decodeUnlabelled(value));
    }
  };
  LineReader lines(data);
  while (const auto line = lines.next()) {
    if (line->empty()) continue;
    if (line->front() == ' ' || line->front() == '\t') {
      pending.addLine(*line);
      continue;
    }
    flush();
    pending.start(*line);
  }
  flush();
  return set;
}

HeaderField HeaderSet::field(std::size_t index) const {
  return {std::string(name(index)), std::string(rawValue(index))};
}

std::string_view HeaderSet::name(std::size_t index) const noexcept {
  const Entry& entry = entries_[index];
  if (entry.nameLength == 0) return kInvalidHeaderName;
  return std::string_view(text_).substr(entry.begin, entry.nameLength);
}

std::string_view HeaderSet::rawValue(std::size_t index) const noexcept {
  const std::size_t begin = std::size_t{entries_[index].begin} + entries_[index].nameLength;
  const std::size_t end = index + 1 < entries_.size() ? entries_[index + 1].begin : text_.size();
  return std::string_view(text_).substr(begin, end - begin);
}

std::vector<HeaderField> HeaderSet::fields() const {
  std::vector<HeaderField> result;
  result.reserve(size());
  for (std::size_t i = 0; i < size(); ++i) result.push_back(field(i));
  return result;
}

std::size_t HeaderSet::find(std::string_view wanted, std::size_t from) const {
  if (isAscii(wanted)) {
    for (std::size_t i = from; i < size(); ++i) {
      if (asciiEqualIgnoringCase(name(i), wanted)) return i;
    }
    return size();
  }
  const std::string lower = lowercase(wanted);
  for (std::size_t i = from; i < size(); ++i) {
    if (lowercase(name(i)) == lower) return i;
  }
  return size();
}

std::optional<std::string_view> HeaderSet::operator[](std::string_view wanted) const {
  const std::size_t index = find(wanted, 0);
  if (index == size()) return std::nullopt;
  return rawValue(index);
}

std::optional<HeaderField> HeaderSet::first(std::string_view wanted) const {
  const std::size_t index = find(wanted, 0);
  if (index == size()) return std::nullopt;
  return field(index);
}

std::vector<HeaderField> HeaderSet::all(std::string_view wanted) const {
  std::vector<HeaderField> found;
  for (std::size_t i = find(wanted, 0); i < size(); i = find(wanted, i + 1)) {
    found.push_back(field(i));
  }
  return found;
}

std::optional<std::string> HeaderSet::decoded(std::string_view wanted) const {
  const auto value = (*this)[wanted];
  if (!value) return std::nullopt;
  return RFC2047::decode(*value);
}

void HeaderSet::append(std::string_view fieldName, std::string_view value) {
  constexpr std::size_t kMaxTextBytes = std::numeric_limits<std::uint32_t>::max();
  const std::size_t room = kMaxTextBytes - text_.size();
  if (fieldName.size() > room || value.size() > room - fieldName.size()) return;
  entries_.push_back(
      {static_cast<std::uint32_t>(text_.size()), static_cast<std::uint32_t>(fieldName.size())});
  text_ += fieldName;
  text_ += value;
}

Bytes HeaderSet::serialized() const {
  Bytes out;
  out.reserve(text_.size() + 3 * size());
  for (std::size_t i = 0; i < size(); ++i) {
    out += name(i);
    out += ':';
    out += rawValue(i);
    out += "\r\n";
  }
  return out;
}

HeaderSplit splitHeaderAndBody(BytesView part) noexcept {
  std::size_t end = part.find("\r\n\r\n");
  if (end != BytesView::npos) return {end, end + 4};
  end = part.find("\n\n");
  if (end != BytesView::npos) return {end, end + 2};
  return {part.size(), part.size()};
}

std::optional<BytesView> LineReader::next() noexcept {
  if (rest_.empty()) return std::nullopt;
  const std::size_t end = rest_.find('\n');
  BytesView line = rest_.substr(0, end);
  rest_.remove_prefix(end == BytesView::npos ? rest_.size() : end + 1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

std::vector<BytesView> splitLines(BytesView data) {
  std::vector<BytesView> lines;
  LineReader reader(data);
  while (const auto line = reader.next()) lines.push_back(*line);
  return lines;
}

std::optional<std::string> fieldName(BytesView line) {
  const std::size_t colon = line.find(':');
  if (colon == BytesView::npos) return std::nullopt;
  const BytesView bytes = line.substr(0, colon);
  if (isAscii(bytes)) {
    const std::string_view name = trim(bytes);
    if (name.empty()) return std::nullopt;
    return std::string(name);
  }
  const std::string text = latin1ToUtf8(bytes);
  const std::string_view name = trim(text);
  if (name.empty()) return std::nullopt;
  return std::string(name);
}

std::optional<ByteRange> firstRange(BytesView data, BytesView pattern, std::size_t from) noexcept {
  if (pattern.empty() || from >= data.size()) return std::nullopt;
  const void* const found =
      ::memmem(data.data() + from, data.size() - from, pattern.data(), pattern.size());
  if (found == nullptr) return std::nullopt;
  const auto begin = static_cast<std::size_t>(static_cast<const char*>(found) - data.data());
  return ByteRange{begin, begin + pattern.size()};
}

}  // namespace ambervane
