#ifndef AMBERVANE_TESTS_SUPPORT_PIECE_STREAM_H_
#define AMBERVANE_TESTS_SUPPORT_PIECE_STREAM_H_

#include <algorithm>
#include <utility>
#include <vector>

#include "imapkit/byte_stream.h"
#include "imapkit/imap_error.h"

namespace ambervane {

/// A stream from memory that arrives in the given pieces and then ends as a connection does.
class PieceStream final : public ByteStream {
 public:
  explicit PieceStream(std::vector<BytesView> pieces) : pieces_(std::move(pieces)) {}

  /// Pieces of `size` bytes.
  static std::vector<BytesView> cut(BytesView bytes, std::size_t size) {
    std::vector<BytesView> pieces;
    for (std::size_t at = 0; at < bytes.size(); at += size)
      pieces.push_back(bytes.substr(at, size));
    return pieces;
  }

 private:
  std::size_t receive(char* into, std::size_t room) override {
    while (next_ < pieces_.size() && pieces_[next_].empty()) ++next_;
    if (next_ == pieces_.size()) {
      throw IMAPError(IMAPError::ConnectionFailed{"server closed the connection"});
    }
    const std::size_t count = pieces_[next_].copy(into, room);
    pieces_[next_].remove_prefix(count);
    return count;
  }

  std::vector<BytesView> pieces_;
  std::size_t next_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_PIECE_STREAM_H_
