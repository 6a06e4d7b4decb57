#include "imapkit/byte_stream.h"

#include <algorithm>
#include <cstring>

#include "imapkit/imap_error.h"

namespace ambervane {
namespace {

/// The rest of a counted run goes through the buffer when it is shorter, so that what follows it
/// comes along with it.
constexpr std::size_t kShortRest = 16384;

}  // namespace

std::string_view ByteStream::readLine() {
  for (;;) {
    const std::string_view held(buffer_.get() + begin_, end_ - begin_);
    std::size_t end = held.find("\r\n", noCrlfBefore_ - begin_);
    std::size_t next = end + 2;
    if (end == held.npos) {
      // A CR at the very end may yet become a CRLF.
      noCrlfBefore_ = end_ - (held.ends_with('\r') ? 1 : 0);
      end = held.find('\n', noLfBefore_ - begin_);
      next = end + 1;
      if (end == held.npos) noLfBefore_ = end_;
    }
    if (std::min(end, held.size()) > kMaxLineBytes) {
      throw IMAPError(IMAPError::ProtocolViolation{"the server sent a line without an end to it"});
    }
    if (end != held.npos) {
      take(next);
      lineWasRead(held.substr(0, end));
      return held.substr(0, end);
    }
    fill();
  }
}

Bytes ByteStream::readBytes(std::size_t count) {
  Bytes bytes;
  bytes.reserve(count);
  const auto takeHeld = [&] {
    const std::size_t held = std::min(count - bytes.size(), end_ - begin_);
    bytes.append(buffer_.get() + begin_, held);
    take(held);
  };
  takeHeld();
  std::size_t filled = bytes.size();
  while (count - filled >= kShortRest) {
    // In steps: memory that was reserved costs nothing until it is touched.
    if (filled == bytes.size()) bytes.resize(std::min(count, filled + kReceiveBytes));
    filled += receive(bytes.data() + filled, bytes.size() - filled);
  }
  bytes.resize(filled);
  while (bytes.size() < count) {
    fill();
    takeHeld();
  }
  return bytes;
}

void ByteStream::take(std::size_t count) noexcept {
  begin_ += count;
  noCrlfBefore_ = std::max(noCrlfBefore_, begin_);
  noLfBefore_ = std::max(noLfBefore_, begin_);
}

void ByteStream::fill() {
  if (capacity_ - end_ < kReceiveBytes) {
    const std::size_t held = end_ - begin_;
    if (capacity_ < held + kReceiveBytes) {
      capacity_ = std::max(held + kReceiveBytes, 2 * capacity_);
      auto larger = std::make_unique_for_overwrite<char[]>(capacity_);
      if (held > 0) std::memcpy(larger.get(), buffer_.get() + begin_, held);
      buffer_ = std::move(larger);
    } else if (held > 0) {
      std::memmove(buffer_.get(), buffer_.get() + begin_, held);
    }
    noCrlfBefore_ -= begin_;
    noLfBefore_ -= begin_;
    end_ = held;
    begin_ = 0;
  }
  end_ += receive(buffer_.get() + end_, kReceiveBytes);
}

}  // namespace ambervane
