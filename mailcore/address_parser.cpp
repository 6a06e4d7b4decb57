#include "mailcore/address_parser.h"

#include "base/text.h"
#include "mailcore/rfc2047.h"

namespace ambervane {
namespace {

/// Cuts a field at its top-level "," ":" and ";". An item keeps its ":"; a ";" is an item of its
/// own.
class ItemReader {
 public:
  explicit ItemReader(std::string_view text) : text_(text) {}

  std::optional<std::string_view> next() {
    if (semicolonPending_) {
      semicolonPending_ = false;
      return ";";
    }
    if (at_ >= text_.size()) return std::nullopt;
    const std::size_t begin = at_;
    while (at_ < text_.size()) {
      const char c = text_[at_++];
      if (!isSeparator(c)) continue;
      semicolonPending_ = c == ';';
      return text_.substr(begin, at_ - begin - (c == ':' ? 0 : 1));
    }
    return text_.substr(begin);
  }

 private:
  /// Follows quotes, comments and angle brackets; true for a separator outside all of them.
  bool isSeparator(char c) {
    if (escaped_) {
      escaped_ = false;
      return false;
    }
    if (c == '\\') escaped_ = true;
    if (c == '"') quoted_ = !quoted_;
    if (quoted_) return false;
    if (c == '(') ++comments_;
    if (c == ')' && comments_ > 0) --comments_;
    if (comments_ > 0) return false;
    if (c == '<') ++angles_;
    if (c == '>' && angles_ > 0) --angles_;
    return angles_ == 0 && (c == ':' || c == ';' || c == ',');
  }

  std::string_view text_;
  std::size_t at_ = 0;
  bool semicolonPending_ = false;
  bool escaped_ = false;
  bool quoted_ = false;
  std::size_t comments_ = 0;  // depth
  std::size_t angles_ = 0;    // depth
};

/// Without comments. Quotes count inside them too, as for `ItemReader`.
std::string stripComments(std::string_view text) {
  std::string out;
  std::size_t depth = 0;
  bool quoted = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '\\') {
      if (depth == 0) out.append(text, at, 2);
      ++at;
      continue;
    }
    if (c == '"') quoted = !quoted;
    if (!quoted && c == '(') {
      ++depth;
    } else if (!quoted && c == ')' && depth > 0) {
      --depth;
    } else if (depth == 0) {
      out.push_back(c);
    }
  }
  return out;
}

/// What stands between the first "(" and the first ")" behind it, trimmed.
std::string_view firstComment(std::string_view text) {
  const std::size_t open = text.find('(');
  if (open == text.npos) return {};
  const std::size_t close = text.find(')', open);
  if (close == text.npos) return {};
  return trim(text.substr(open + 1, close - open - 1));
}

}  // namespace

std::optional<std::string> MailAddress::domain() const {
  const auto pieces = splitOmittingEmpty(address, "@");
  if (pieces.size() < 2) return std::nullopt;
  return lowercase(pieces[1]);
}

std::string MailAddress::normalizedAddress() const { return lowercase(address); }

std::string MailAddress::formatted() const {
  if (!displayName || displayName->empty()) return address;
  return *displayName + " <" + address + ">";
}

namespace AddressParser {

std::string unquote(std::string_view text) {
  text = trim(text);
  if (text.size() < 2 || !text.starts_with('"') || !text.ends_with('"')) return std::string(text);
  text = text.substr(1, text.size() - 2);
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\\' && at + 1 < text.size()) ++at;
    out.push_back(text[at]);
  }
  return out;
}

std::optional<MailAddress> parseSingle(std::string_view text,
                                       const std::optional<std::string>& group) {
  MailAddress result;
  result.group = group;
  std::string name;
  const std::size_t open = text.rfind('<');
  const std::size_t close = open == text.npos ? text.npos : text.find('>', open);
  if (close != text.npos) {
    result.address = trim(text.substr(open + 1, close - open - 1));
    name = unquote(stripComments(trim(text.substr(0, open))));
  } else {
    result.address = trim(stripComments(text));
    name = firstComment(text);
  }
  if (result.address.empty()) {
    if (group) return result;
    return std::nullopt;
  }
  result.address = std::string(trimOf(result.address, "<>\"' "));
  if (!name.empty()) result.displayName = std::move(name);
  return result;
}

std::vector<MailAddress> parseList(std::optional<std::string_view> text) {
  std::vector<MailAddress> result;
  if (!text || trim(*text).empty()) return result;
  const std::string decoded = RFC2047::decode(*text);
  ItemReader items(decoded);
  std::optional<std::string> group;
  while (result.size() < kMaxAddresses) {
    const auto next = items.next();
    if (!next) break;
    std::string_view item = trim(*next);
    if (item.empty()) continue;
    if (item.ends_with(':')) {
      item.remove_suffix(1);
      group = prefixCharacters(trim(item), kMaxGroupCharacters);
      continue;
    }
    if (item.ends_with(';')) {
      item.remove_suffix(1);
      item = trim(item);
      if (item.empty()) {
        group.reset();
        continue;
      }
    }
    if (auto address = parseSingle(item, group)) result.push_back(*std::move(address));
  }
  return result;
}

}  // namespace AddressParser
}  // namespace ambervane
