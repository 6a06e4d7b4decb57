#ifndef AMBERVANE_STORE_PACK_STORE_H_
#define AMBERVANE_STORE_PACK_STORE_H_

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/bytes.h"
#include "base/file.h"
#include "store/pack_format.h"

namespace ambervane {

/// Where one record lies.
struct PackLocation {
  std::int64_t packID = 0;
  std::int64_t offset = 0;          ///< of the record's header, in bytes from the file's first
  std::int64_t storedLength = 0;    ///< bytes of the payload
  std::int64_t originalLength = 0;  ///< bytes of the payload before compression
  friend bool operator==(const PackLocation&, const PackLocation&) = default;
};

/// The folder of append-only pack files. Layout: docs/format/pack.md. It knows payloads and flags,
/// nothing of messages.
///
/// Safe from any thread. One pack at a time is open for appending, the current one. Failures of the
/// system come as FileError, all others as PackError.
class PackStore {
 public:
  /// How many packs besides the current one stay mapped.
  static constexpr std::size_t kReadCacheLimit = 6;

  struct RawRecord {
    BytesView payload;  ///< valid as long as `mapping`
    RecordFlags flags;
    std::uint16_t dictionaryID = 0;
    std::uint32_t originalLength = 0;  ///< as the header says; not covered by the checksum
    std::shared_ptr<const MappedFile> mapping;
  };
  struct Seal {
    std::string sha256;      ///< of the whole file, lower-case hexadecimal
    std::int64_t bytes = 0;  ///< size of the file
    bool immutable = false;  ///< whether the file system now refuses every change
  };

  /// Creates the folder and those above it unless `readOnly`.
  PackStore(std::filesystem::path directory, std::int64_t maxPackBytes, bool readOnly);

  /// Makes `packID` the current pack, created where it is missing, and returns the offset of the
  /// next record. Flushes and closes the pack that was current. Throws ReadOnly for a read-only
  /// store and for a pack with the immutable attribute.
  std::int64_t openForWriting(std::int64_t packID);
  /// Appends one record to `packID`, which becomes the current pack; durable after the next
  /// `flush`. Throws TooLarge before anything is touched: for a payload above
  /// `kMaxRecordPayloadBytes`, or an original length that its field cannot hold. After any other
  /// throw part of the record may stand in the file as dead bytes; the next record goes behind
  /// them.
  PackLocation append(BytesView payload, std::size_t originalLength, RecordFlags flags,
                      std::uint16_t dictionaryID, std::int64_t packID);
  /// The record at `location` (its pack and offset are used), its checksum proved. In the current
  /// pack it is made durable first.
  RawRecord read(const PackLocation& location);
  /// Makes all appended records durable. Once it has failed it keeps failing, as do `append` and
  /// `seal`: what the disk holds is unknown.
  void flush();

  /// Whether a record of `bytes` (header included) belongs into the next pack. Never for a pack
  /// without a record, so that a record above the limit finds a place too.
  bool needsRollover(std::int64_t bytes) const;
  /// Closes the pack and takes its digest; with `enforceWORM` also takes away every permission to
  /// write and sets the immutable attribute, as far as the file system goes along.
  Seal seal(std::int64_t packID, bool enforceWORM);
  /// SHA-256 of the whole pack file as it stands, lower-case hexadecimal.
  std::string digest(std::int64_t packID) const;
  /// Lifts the write protection of a sealed pack, for repairs; failures are swallowed.
  void unlockForAppend(std::int64_t packID);

  std::filesystem::path packURL(std::int64_t packID) const;
  static std::string packName(std::int64_t packID);  ///< "00000001.pack"
  /// Headers and payloads appended since the store was made.
  std::uint64_t bytesAppended() const;
  void invalidateCache();

 private:
  using Mapping = std::shared_ptr<const MappedFile>;

  void openLocked(std::int64_t packID);
  void closeLocked();
  void syncLocked();
  void refuseAfterFailedSync() const;
  /// The pack's mapping, and whether it was at hand already and so may lack a later end.
  std::pair<Mapping, bool> mapLocked(std::int64_t packID);
  Mapping mapFile(std::int64_t packID) const;
  void forgetLocked(std::int64_t packID);
  Seal hashPack(std::int64_t packID) const;

  const std::filesystem::path directory_;
  const std::int64_t maxPackBytes_;
  const bool readOnly_;

  mutable std::mutex mutex_;
  std::optional<AppendFile> file_;  ///< of the current pack
  std::int64_t currentPackID_ = 0;
  std::int64_t currentOffset_ = 0;  ///< end of the current pack; 0 without one
  bool endUnknown_ = false;         ///< an append failed: the size must be asked for anew
  bool unsynced_ = false;
  std::optional<FileError> syncFailure_;
  Mapping currentMapping_;  ///< of the current pack; empty when it has grown since
  std::vector<std::pair<std::int64_t, Mapping>> readCache_;  ///< least recently used first
  std::uint64_t appended_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_PACK_STORE_H_
