#include "store/pack_scan.h"

#include <optional>

#include "store/deflate.h"

namespace ambervane {
namespace {

/// What the header at `offset` says; absent where none can stand.
std::optional<ScannedRecord> headerAt(BytesView pack, std::size_t offset) {
  if (offset > pack.size() || pack.size() - offset < kRecordHeaderBytes) return std::nullopt;
  const BytesView header = pack.substr(offset, kRecordHeaderBytes);
  if (!header.starts_with(kRecordMagic)) return std::nullopt;
  ScannedRecord record;
  record.offset = offset;
  record.flags.bits = readLittleEndian16(header, kRecordFlagsOffset);
  record.dictionaryID = readLittleEndian16(header, kRecordDictionaryOffset);
  record.originalLength = readLittleEndian32(header, kRecordOriginalLengthOffset);
  record.storedLength = readLittleEndian32(header, kRecordStoredLengthOffset);
  if (record.storedLength > pack.size() - offset - kRecordHeaderBytes) return std::nullopt;
  return record;
}

}  // namespace

void scanPack(BytesView pack, const std::function<bool(std::size_t offset)>& isKnown,
              const std::function<void(const ScannedRecord&)>& found) {
  std::size_t mayWaste = kMostWastedScans * pack.size();
  for (std::size_t at = kPackHeaderBytes; at < pack.size();) {
    const auto record = headerAt(pack, at);
    bool holds = false;
    if (record && isKnown(at)) {
      holds = true;
    } else if (record && record->storedLength <= mayWaste) {
      const BytesView payload = pack.substr(at + kRecordHeaderBytes, record->storedLength);
      holds = Deflate::crc32(payload) == readLittleEndian32(pack, at + kRecordChecksumOffset);
      if (holds) found(*record);
      if (!holds) mayWaste -= record->storedLength;
    }
    at = holds ? at + kRecordHeaderBytes + record->storedLength : pack.find(kRecordMagic, at + 1);
  }
}

}  // namespace ambervane
