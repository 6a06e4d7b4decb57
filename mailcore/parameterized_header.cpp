#include "mailcore/parameterized_header.h"

#include <cstdint>
#include <utility>

#include "base/bytes.h"
#include "base/text.h"
#include "mailcore/address_parser.h"
#include "mailcore/charset.h"
#include "mailcore/rfc2047.h"
#include "mailcore/transfer_decoding.h"

namespace ambervane {
namespace {

/// Cuts at each ";" outside double quotes, in which a backslash protects the next character.
class PieceReader {
 public:
  explicit PieceReader(std::string_view text) : text_(text) {}

  std::optional<std::string_view> next() {
    if (at_ > text_.size()) return std::nullopt;
    const std::size_t begin = at_;
    bool quoted = false;
    for (; at_ < text_.size(); ++at_) {
      const char c = text_[at_];
      if (c == '"') {
        quoted = !quoted;
      } else if (quoted && c == '\\') {
        ++at_;
      } else if (!quoted && c == ';') {
        break;
      }
    }
    const std::string_view piece = text_.substr(begin, at_ - begin);
    ++at_;
    return piece;
  }

 private:
  std::string_view text_;
  std::size_t at_ = 0;  // behind the end once the last piece was handed out
};

/// A parameter value taken apart: text as it stands, or bytes that were percent-encoded and the
/// character set they name, if any.
struct ExtendedValue {
  std::string content;
  bool isBytes = false;
  std::optional<std::string> charset;
};

/// charset'language'value; a text with fewer than two apostrophes is all value, and is taken for
/// percent-encoded only with `alreadyPercent`.
ExtendedValue decodeExtended(std::string_view text, bool alreadyPercent) {
  ExtendedValue result;
  const std::size_t first = text.find('\'');
  const std::size_t second = first == text.npos ? text.npos : text.find('\'', first + 1);
  if (second != text.npos) {
    if (first > 0) result.charset = std::string(text.substr(0, first));
    text = text.substr(second + 1);
  }
  result.isBytes = result.charset.has_value() || alreadyPercent;
  result.content =
      result.isBytes ? ContentTransferDecoder::decodeHexEscapes(text, '%') : std::string(text);
  return result;
}

/// The pieces "name*0", "name*1" and so on of one parameter. They are joined before their
/// character set is read, as a mailer may cut between the bytes of a character.
class Continuations {
 public:
  void add(std::int64_t number, ExtendedValue piece) {
    if (piece.charset) charset_ = piece.charset;
    pieces_[number] = std::move(piece);
  }

  std::string joined() const {
    std::string text;
    Bytes bytes;
    const auto flush = [&] {
      if (!bytes.empty()) text += Charset::decode(bytes, charset_);
      bytes.clear();
    };
    for (const auto& [number, piece] : pieces_) {
      if (piece.isBytes) {
        bytes += piece.content;
      } else {
        flush();
        text += piece.content;
      }
    }
    flush();
    return text;
  }

 private:
  std::map<std::int64_t, ExtendedValue> pieces_;
  std::optional<std::string> charset_;
};

/// Splits "name*N" into the base name and N; absent where it is no such name.
std::optional<std::pair<std::string_view, std::int64_t>> continuationOf(std::string_view name) {
  const std::size_t star = name.rfind('*');
  if (star == name.npos) return std::nullopt;
  const auto number = parseInteger(name.substr(star + 1));
  if (!number) return std::nullopt;
  return std::pair{name.substr(0, star), *number};
}

class ParameterReader {
 public:
  void read(std::string_view piece) {
    const std::size_t equals = piece.find('=');
    if (equals == piece.npos) return;
    std::string name = lowercase(trim(piece.substr(0, equals)));
    std::string value = AddressParser::unquote(piece.substr(equals + 1));
    const bool extended = name.ends_with('*');
    if (extended) name.pop_back();
    if (const auto continuation = continuationOf(name)) {
      const auto [base, number] = *continuation;
      ExtendedValue part;
      if (number > 0 && !extended) {
        part.content = std::move(value);
      } else {
        part = decodeExtended(value, extended);
      }
      continued_[std::string(base)].add(number, std::move(part));
    } else if (extended) {
      const ExtendedValue whole = decodeExtended(value, false);
      parameters_[name] =
          whole.isBytes ? Charset::decode(whole.content, whole.charset) : whole.content;
    } else {
      parameters_[name] = RFC2047::decode(value);
    }
  }

  auto finish() {
    for (const auto& [name, pieces] : continued_) parameters_[name] = pieces.joined();
    return std::move(parameters_);
  }

 private:
  std::map<std::string, std::string, std::less<>> parameters_;
  std::map<std::string, Continuations> continued_;
};

}  // namespace

std::optional<ParameterizedHeader> ParameterizedHeader::parse(
    std::optional<std::string_view> text) {
  if (!text) return std::nullopt;
  const std::string_view trimmed = trim(*text);
  if (trimmed.empty()) return std::nullopt;
  PieceReader pieces(trimmed);
  ParameterizedHeader header;
  header.value = lowercase(trim(pieces.next().value_or("")));
  ParameterReader parameters;
  for (std::size_t count = 0; count < kMaxParameters; ++count) {
    const auto piece = pieces.next();
    if (!piece) break;
    parameters.read(*piece);
  }
  header.parameters = parameters.finish();
  return header;
}

std::string_view ParameterizedHeader::mediaType() const noexcept {
  return std::string_view(value).substr(0, value.find('/'));
}

std::string_view ParameterizedHeader::subtype() const noexcept {
  const std::size_t slash = value.find('/');
  return slash == value.npos ? std::string_view() : std::string_view(value).substr(slash + 1);
}

std::optional<std::string_view> ParameterizedHeader::parameter(std::string_view name) const {
  const auto found = parameters.find(lowercase(name));
  if (found == parameters.end()) return std::nullopt;
  return found->second;
}

}  // namespace ambervane
