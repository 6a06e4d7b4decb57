#include "imapkit/fetch_response.h"

#include <utility>

#include "base/text.h"
#include "imapkit/command_line.h"

namespace ambervane {
namespace {

/// The bytes of a literal or a quoted string.
std::optional<Bytes> takeBody(IMAPToken& value) {
  if (auto* literal = std::get_if<IMAPToken::Literal>(&value.value)) {
    return std::move(literal->bytes);
  }
  if (auto* quoted = std::get_if<IMAPToken::Quoted>(&value.value)) return std::move(quoted->text);
  return std::nullopt;
}

template <typename T>
void takeOver(std::optional<T>& into, std::optional<T>&& from) {
  if (from) into = std::move(from);
}

void readPair(FetchItem& item, std::string_view key, IMAPToken& value) {
  if (key == "UID") {
    item.uid = value.intValue().value_or(0);
  } else if (key == "RFC822.SIZE") {
    item.size = value.intValue();
  } else if (key == "INTERNALDATE") {
    item.internalDate = parseInternalDate(value.stringValue().value_or(""));
  } else if (key == "FLAGS" && value.list() != nullptr) {
    item.flags.emplace();
    for (const IMAPToken& flag : *value.list()) {
      if (auto text = flag.stringValue()) item.flags->push_back(std::move(*text));
    }
  } else if (key == "RFC822" || key == "BODY[]" || key == "BODY.PEEK[]") {
    takeOver(item.message, takeBody(value));
  } else if (key.starts_with("BODY[HEADER") || key.starts_with("BODY.PEEK[HEADER")) {
    takeOver(item.header, takeBody(value));
  }
}

}  // namespace

void FetchItem::merge(FetchItem&& later) {
  takeOver(flags, std::move(later.flags));
  takeOver(internalDate, std::move(later.internalDate));
  takeOver(size, std::move(later.size));
  if (!message) message = std::move(later.message);
  if (!header) header = std::move(later.header);
}

std::optional<FetchItem> parseFetchResponse(IMAPResponse&& response) {
  if (response.kind != IMAPResponse::Kind::untagged || !response.hasAtom(1, "FETCH") ||
      response.tokens.size() < 3) {
    return std::nullopt;
  }
  auto* pairs = std::get_if<IMAPToken::List>(&response.tokens[2].value);
  if (pairs == nullptr) return std::nullopt;
  FetchItem item;
  for (std::size_t i = 0; i + 1 < pairs->size(); i += 2) {
    readPair(item, asciiUppercase((*pairs)[i].stringValue().value_or("")), (*pairs)[i + 1]);
  }
  if (item.uid < 1) return std::nullopt;
  return item;
}

std::set<MessageFlag> systemFlags(const std::vector<std::string>& flags) {
  std::set<MessageFlag> known;
  for (const std::string& text : flags) {
    if (const auto flag = messageFlagFromImap(text)) known.insert(*flag);
  }
  return known;
}

}  // namespace ambervane
