#ifndef AMBERVANE_IMAPKIT_IMAP_RESPONSE_READER_H_
#define AMBERVANE_IMAPKIT_IMAP_RESPONSE_READER_H_

#include <cstddef>

#include "imapkit/byte_stream.h"
#include "imapkit/imap_response.h"

namespace ambervane {

// What one response may hold. Anything above ends the session.
inline constexpr std::size_t kMaxLiteralBytes = 268435456;  ///< of all its literals together
inline constexpr std::size_t kMaxLiterals = 4096;
inline constexpr std::size_t kMaxResponseText = 16777216;  ///< of all between its literals

/// Puts lines and literals together into responses.
class IMAPResponseReader {
 public:
  /// `stream` must outlive the reader.
  explicit IMAPResponseReader(ByteStream& stream) : stream_(stream) {}
  /// The next complete response. Throws IMAPError (ProtocolViolation, and what the stream throws).
  IMAPResponse read();

 private:
  ByteStream& stream_;
};

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_IMAP_RESPONSE_READER_H_
