#include "store/message_record.h"

#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

#include "store/pack_error.h"

namespace ambervane {
namespace {

constexpr char kLiteralKind = 0;
constexpr char kBlobKind = 1;
constexpr std::size_t kEntryBytes = 5;  ///< kind and length

[[noreturn]] void corrupt(const char* text) { throw PackError(PackError::CorruptRecord{text}); }

Bytes rawHash(const std::string& hash) {
  std::optional<Bytes> raw = hexDecode(hash);
  if (!raw || raw->size() != MessageRecord::kHashBytes) {
    throw std::invalid_argument("a blob hash is not 64 hexadecimal digits: " + hash);
  }
  return *std::move(raw);
}

}  // namespace

Bytes MessageRecord::encode() const {
  if (segments.size() > kMaxSegments) {
    throw std::length_error("a message record has more segments than its count can hold");
  }
  std::size_t size = kHeaderBytes;
  for (const Segment& segment : segments) {
    const auto* literal = std::get_if<Literal>(&segment);
    size += kEntryBytes + (literal != nullptr ? literal->bytes.size() : kHashBytes);
  }
  Bytes out;
  out.reserve(size);
  out.push_back(static_cast<char>(kVersion));
  appendLittleEndian16(out, static_cast<std::uint16_t>(segments.size()));
  for (const Segment& segment : segments) {
    if (const auto* literal = std::get_if<Literal>(&segment)) {
      if (literal->bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("a literal of a message record is longer than its length can hold");
      }
      out.push_back(kLiteralKind);
      appendLittleEndian32(out, static_cast<std::uint32_t>(literal->bytes.size()));
    } else {
      const auto& blob = std::get<Blob>(segment);
      out.push_back(kBlobKind);
      appendLittleEndian32(out, blob.length);
      out += rawHash(blob.hash);
    }
  }
  for (const Segment& segment : segments) {
    if (const auto* literal = std::get_if<Literal>(&segment)) out += literal->bytes;
  }
  return out;
}

MessageRecord MessageRecord::decode(BytesView bytes) {
  if (bytes.size() < kHeaderBytes || static_cast<std::uint8_t>(bytes[0]) != kVersion) {
    corrupt("unsupported message record version");
  }
  const std::size_t count = readLittleEndian16(bytes, 1);
  // The table comes first and says where the literals start, so it is walked twice: for its end,
  // then for the segments.
  std::size_t data = kHeaderBytes;
  for (std::size_t i = 0; i < count; ++i) {
    if (bytes.size() - data < kEntryBytes) corrupt("truncated segment table");
    const bool isBlob = bytes[data] == kBlobKind;
    data += kEntryBytes;
    if (!isBlob) continue;
    if (bytes.size() - data < kHashBytes) corrupt("truncated blob hash");
    data += kHashBytes;
  }
  MessageRecord record;
  record.segments.reserve(count);
  std::size_t entry = kHeaderBytes;
  for (std::size_t i = 0; i < count; ++i) {
    const bool isBlob = bytes[entry] == kBlobKind;
    const std::uint32_t length = readLittleEndian32(bytes, entry + 1);
    entry += kEntryBytes;
    if (isBlob) {
      record.segments.emplace_back(Blob{hexEncode(bytes.substr(entry, kHashBytes)), length});
      entry += kHashBytes;
    } else {
      if (bytes.size() - data < length) corrupt("truncated literal run");
      record.segments.emplace_back(Literal{bytes.substr(data, length)});
      data += length;
    }
  }
  return record;
}

std::vector<std::string> MessageRecord::blobHashes() const {
  std::vector<std::string> hashes;
  for (const Segment& segment : segments) {
    if (const auto* blob = std::get_if<Blob>(&segment)) hashes.push_back(blob->hash);
  }
  return hashes;
}

}  // namespace ambervane
