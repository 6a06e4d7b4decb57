#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "imapkit/fetch_response.h"
#include "imapkit/imap_response_reader.h"
#include "imapkit/modified_utf7.h"
#include "imapkit/sequence_set.h"
#include "tests/support/piece_stream.h"

namespace {

using namespace ambervane;

std::vector<IMAPResponse> readAll(BytesView wire, std::size_t pieceBytes) {
  std::vector<IMAPResponse> responses;
  PieceStream stream(PieceStream::cut(wire, pieceBytes));
  IMAPResponseReader reader(stream);
  try {
    for (;;) responses.push_back(reader.read());
  } catch (const IMAPError&) {
    return responses;
  }
}

void requireText(const IMAPToken::List& tokens, std::size_t depth) {
  require(depth <= kMaxListDepth + 1);
  for (const IMAPToken& token : tokens) {
    if (const auto text = token.stringValue()) requireUtf8(*text);
    if (token.list() != nullptr) requireText(*token.list(), depth + 1);
  }
}

/// Whether a line of what a server sends may end at a bare LF: where that is depends on what has
/// arrived with it. A counted run of bytes can end between CR and LF, too.
bool mayHaveBareLineFeed(BytesView wire) {
  for (std::size_t i = 0; i < wire.size(); ++i) {
    if (wire[i] == '\n' && (i == 0 || wire[i - 1] != '\r')) return true;
    if (wire[i] != '{') continue;
    std::size_t end = i + 1;
    std::size_t count = 0;
    while (end < wire.size() && wire[end] >= '0' && wire[end] <= '9' && count < wire.size()) {
      count = 10 * count + static_cast<std::size_t>(wire[end++] - '0');
    }
    const std::size_t start = wire.find('\n', end);
    if (start != BytesView::npos && start + 1 + count < wire.size() &&
        wire[start + 1 + count] == '\n') {
      return true;
    }
  }
  return false;
}

}  // namespace

/// Reads the input as what a server sends, as mailbox names and as sets of numbers.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const BytesView wire = fuzzInput(data, size);
  std::vector<IMAPResponse> responses = readAll(wire, size + 1);
  if (!mayHaveBareLineFeed(wire)) require(readAll(wire, 1) == responses);
  for (IMAPResponse& response : responses) {
    requireUtf8(response.rawText);
    requireText(response.tokens, 0);
    if (const auto code = response.responseCodeValue("ALL")) {
      if (const auto numbers = expandSequenceSet(*code); numbers && numbers->size() < 1000) {
        compressSequenceSet(*numbers);
      }
    }
    if (const auto item = parseFetchResponse(std::move(response))) require(item->uid > 0);
  }
  const std::string name = ModifiedUTF7::decode(wire);
  if (isValidUtf8(name)) require(ModifiedUTF7::decode(ModifiedUTF7::encode(name)) == name);
  return 0;
}
