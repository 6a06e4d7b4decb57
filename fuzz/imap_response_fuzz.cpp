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

}  // namespace

/// Reads the input as what a server sends, as mailbox names and as sets of numbers.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const BytesView wire = fuzzInput(data, size);
  std::vector<IMAPResponse> responses = readAll(wire, size + 1);
  bool hasBareLineFeed = false;
  for (std::size_t i = 0; i < size; ++i) {
    hasBareLineFeed = hasBareLineFeed || (wire[i] == '\n' && (i == 0 || wire[i - 1] != '\r'));
  }
  // Where a line ends at a bare LF depends on what has arrived with it.
  if (!hasBareLineFeed) require(readAll(wire, 1) == responses);
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
