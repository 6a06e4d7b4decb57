#ifndef AMBERVANE_STORE_MESSAGE_RECORD_H_
#define AMBERVANE_STORE_MESSAGE_RECORD_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "base/bytes.h"

namespace ambervane {

/// A message as runs of its own bytes and references to attachment blobs, in order. Layout:
/// docs/format/record.md. The literals are views: whoever owns the bytes (the raw message when
/// encoding, the buffer given to `decode` when reading) must outlive the record.
struct MessageRecord {
  static constexpr std::uint8_t kVersion = 1;
  static constexpr std::size_t kHeaderBytes = 3;
  static constexpr std::size_t kMaxSegments = 65535;
  static constexpr std::size_t kHashBytes = 32;

  struct Literal {
    BytesView bytes;
    friend bool operator==(const Literal&, const Literal&) = default;
  };
  struct Blob {
    std::string hash;          ///< 64 hexadecimal digits, lower case when decoded
    std::uint32_t length = 0;  ///< of the encoded bytes it stands for
    friend bool operator==(const Blob&, const Blob&) = default;
  };
  using Segment = std::variant<Literal, Blob>;

  std::vector<Segment> segments;

  /// Throws std::length_error for more than `kMaxSegments` segments or a literal of 4 GiB and more,
  /// std::invalid_argument for a hash that is not 64 hexadecimal digits: whoever splits a message
  /// must not let these come about.
  Bytes encode() const;
  /// Throws PackError (CorruptRecord). Bytes behind the last literal are ignored.
  static MessageRecord decode(BytesView bytes);
  /// The hashes of the blob segments, in order, repetitions included.
  std::vector<std::string> blobHashes() const;
  friend bool operator==(const MessageRecord&, const MessageRecord&) = default;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_MESSAGE_RECORD_H_
