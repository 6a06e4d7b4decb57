#include "imapkit/imap_response.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/text.h"

namespace ambervane {
namespace {

/// The names behind which a "[" opens a section (RFC 3501 section 6.4.5, RFC 3516). Elsewhere in
/// an atom it is a character like any other, in the keyword "a[b" for instance.
bool takesSection(std::string_view name) noexcept {
  static constexpr std::array<std::string_view, 5> kNames = {"BODY", "BODY.PEEK", "BINARY",
                                                             "BINARY.PEEK", "BINARY.SIZE"};
  return name.empty() || std::any_of(kNames.begin(), kNames.end(), [&](std::string_view known) {
           return asciiEqualIgnoringCase(name, known);
         });
}

class Tokenizer {
 public:
  Tokenizer(std::string_view text, std::vector<Bytes> literals)
      : text_(text), literals_(std::move(literals)) {}

  IMAPToken::List tokens() {
    std::vector<IMAPToken::List> open(1);
    std::size_t flattened = 0;  // "(" that opened no list, being too deep
    const auto close = [&] {
      IMAPToken list{std::move(open.back())};
      open.pop_back();
      open.back().push_back(std::move(list));
    };
    while (at_ < text_.size()) {
      const char c = text_[at_];
      if (c == '(') {
        if (open.size() <= kMaxListDepth) {
          open.emplace_back();
        } else {
          ++flattened;
        }
        ++at_;
      } else if (c == ')') {
        if (flattened > 0) {
          --flattened;
        } else if (open.size() > 1) {
          close();
        }
        ++at_;
      } else if (c == ' ') {
        ++at_;
      } else {
        open.back().push_back(next(c));
      }
    }
    while (open.size() > 1) close();
    return std::move(open.front());
  }

 private:
  IMAPToken next(char c) {
    if (c == '\0') {
      ++at_;
      const std::size_t index = literal_++;
      return {IMAPToken::Literal{index < literals_.size() ? std::move(literals_[index]) : Bytes()}};
    }
    if (c == '"') return {IMAPToken::Quoted{quoted()}};
    std::string text = atom();
    if (asciiEqualIgnoringCase(text, "NIL")) return {IMAPToken::Nil{}};
    return {IMAPToken::Atom{std::move(text)}};
  }

  std::string quoted() {
    std::string text;
    for (++at_; at_ < text_.size(); ++at_) {
      char c = text_[at_];
      if (c == '"') {
        ++at_;
        break;
      }
      if (c == '\\' && at_ + 1 < text_.size()) c = text_[++at_];
      if (c == '\0') ++literal_;
      text.push_back(c);
    }
    return text;
  }

  std::string atom() {
    const std::size_t begin = at_;
    std::size_t brackets = 0;
    for (; at_ < text_.size(); ++at_) {
      const char c = text_[at_];
      if (brackets == 0 && (c == ' ' || c == '(' || c == ')')) break;
      if (c == '\0') ++literal_;
      if (c == '[' && (brackets > 0 || takesSection(text_.substr(begin, at_ - begin)))) ++brackets;
      if (c == ']' && brackets > 0) --brackets;
    }
    return std::string(text_.substr(begin, at_ - begin));
  }

  std::string_view text_;
  std::vector<Bytes> literals_;
  std::size_t at_ = 0;
  std::size_t literal_ = 0;  ///< number of the next one
};

}  // namespace

std::optional<std::string> IMAPToken::stringValue() const {
  if (const auto* atom = std::get_if<Atom>(&value)) return atom->text;
  if (const auto* quoted = std::get_if<Quoted>(&value)) return quoted->text;
  if (const auto* literal = std::get_if<Literal>(&value)) return repairedUtf8(literal->bytes);
  return std::nullopt;
}

std::optional<std::int64_t> IMAPToken::intValue() const {
  const auto text = stringValue();
  return text ? parseInteger(*text) : std::nullopt;
}

bool IMAPToken::isAtom(std::string_view text) const noexcept {
  const auto* atom = std::get_if<Atom>(&value);
  return atom != nullptr && asciiEqualIgnoringCase(atom->text, text);
}

bool IMAPResponse::hasAtom(std::size_t index, std::string_view text) const noexcept {
  return index < tokens.size() && tokens[index].isAtom(text);
}

std::optional<std::string_view> IMAPResponse::responseCode() const noexcept {
  const std::string_view text = rawText;
  const std::size_t begin = text.find('[');
  const std::size_t end = text.find(']', begin == text.npos ? 0 : begin);
  if (begin == text.npos || end == text.npos) return std::nullopt;
  return text.substr(begin + 1, end - begin - 1);
}

std::optional<std::string_view> IMAPResponse::responseCodeValue(
    std::string_view name) const noexcept {
  const auto code = responseCode();
  if (!code) return std::nullopt;
  const std::size_t end = std::min(code->find(' '), code->size());
  if (!asciiEqualIgnoringCase(code->substr(0, end), name)) return std::nullopt;
  return trimOf(code->substr(end), " ");
}

IMAPResponse parseResponse(std::string text, std::vector<Bytes> literals) {
  IMAPResponse response;
  response.tokens = Tokenizer(text, std::move(literals)).tokens();
  if (text.starts_with('+')) {
    response.kind = IMAPResponse::Kind::continuation;
  } else {
    const bool untagged = text.starts_with("* ") || text == "*";
    response.kind = untagged ? IMAPResponse::Kind::untagged : IMAPResponse::Kind::tagged;
    if (!response.tokens.empty()) {
      if (!untagged) response.tag = response.tokens.front().stringValue().value_or("");
      response.tokens.erase(response.tokens.begin());
    }
  }
  response.rawText = std::move(text);
  return response;
}

std::optional<std::string_view> announcedLiteralSize(std::string_view line) noexcept {
  if (!line.ends_with('}')) return std::nullopt;
  line.remove_suffix(1);
  const std::size_t begin = line.rfind('{');
  if (begin == line.npos) return std::nullopt;
  line.remove_prefix(begin + 1);
  if (line.ends_with('+')) line.remove_suffix(1);
  if (line.empty() || !std::all_of(line.begin(), line.end(), isAsciiDigit)) return std::nullopt;
  return line;
}

}  // namespace ambervane
