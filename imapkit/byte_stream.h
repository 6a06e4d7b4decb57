#ifndef AMBERVANE_IMAPKIT_BYTE_STREAM_H_
#define AMBERVANE_IMAPKIT_BYTE_STREAM_H_

#include <cstddef>
#include <memory>
#include <string_view>

#include "base/bytes.h"

namespace ambervane {

/// A line longer than this, or as many bytes without a line end, ends the session.
inline constexpr std::size_t kMaxLineBytes = 1048576;
/// At most so many bytes are asked for at a time.
inline constexpr std::size_t kReceiveBytes = 262144;

/// Lines and counted bytes out of a stream that arrives in pieces of any size. What the pieces come
/// from is for the derived class to say: a socket, or a test's list of pieces.
class ByteStream {
 public:
  virtual ~ByteStream() = default;
  ByteStream() = default;
  ByteStream(const ByteStream&) = delete;
  ByteStream& operator=(const ByteStream&) = delete;

  /// The next line without its end, valid until the next call. A line ends at the first CRLF of
  /// what has arrived, and only where there is none at the first LF. Throws IMAPError
  /// (ProtocolViolation, and what `receive` throws).
  std::string_view readLine();
  /// Exactly `count` bytes. What has not arrived yet goes straight into the result, and memory is
  /// taken up only as bytes arrive. Throws what `receive` throws.
  Bytes readBytes(std::size_t count);

 protected:
  /// Waits for at least one byte and puts at most `room` into `into`; returns how many. Throws at
  /// the end of the stream and for any failure.
  virtual std::size_t receive(char* into, std::size_t room) = 0;
  /// Told each line that was read.
  virtual void lineWasRead(std::string_view /*line*/) {}

 private:
  void fill();
  void take(std::size_t count) noexcept;

  std::unique_ptr<char[]> buffer_;
  std::size_t capacity_ = 0;
  std::size_t begin_ = 0;  ///< of what has not been taken
  std::size_t end_ = 0;    ///< of what has arrived
  // What has been searched without success is not searched again, however small the pieces.
  std::size_t noCrlfBefore_ = 0;
  std::size_t noLfBefore_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_BYTE_STREAM_H_
