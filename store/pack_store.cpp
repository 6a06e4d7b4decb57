#include "store/pack_store.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>

#include "base/digest.h"
#include "platform/immutable_flag.h"
#include "store/deflate.h"
#include "store/pack_error.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kHashChunkBytes = 4194304;

[[noreturn]] void corrupt(std::string text) {
  throw PackError(PackError::CorruptRecord{std::move(text)});
}

Bytes recordHeader(BytesView payload, std::size_t originalLength, RecordFlags flags,
                   std::uint16_t dictionaryID) {
  Bytes header(kRecordMagic);
  header.reserve(kRecordHeaderBytes);
  appendLittleEndian16(header, flags.bits);
  appendLittleEndian16(header, dictionaryID);
  appendLittleEndian32(header, static_cast<std::uint32_t>(originalLength));
  appendLittleEndian32(header, static_cast<std::uint32_t>(payload.size()));
  appendLittleEndian32(header, Deflate::crc32(payload));
  return header;
}

/// How far the record at `offset` reaches, as far as `pack` tells: at least its header.
std::uint64_t recordEnd(BytesView pack, std::int64_t offset) noexcept {
  const auto start = static_cast<std::uint64_t>(std::max<std::int64_t>(offset, 0));
  const std::uint64_t headerEnd = start + kRecordHeaderBytes;
  if (headerEnd > pack.size()) return headerEnd;
  return headerEnd + readLittleEndian32(pack, start + kRecordStoredLengthOffset);
}

PackStore::RawRecord parseRecord(BytesView pack, std::int64_t packID, std::int64_t offset) {
  if (offset < 0 || pack.size() < kRecordHeaderBytes ||
      static_cast<std::uint64_t>(offset) > pack.size() - kRecordHeaderBytes) {
    corrupt(fmt::format("offset {} past end of pack {}", offset, packID));
  }
  const BytesView record = pack.substr(static_cast<std::size_t>(offset));
  if (!record.starts_with(kRecordMagic)) {
    corrupt(fmt::format("bad record magic in pack {} at {}", packID, offset));
  }
  const std::size_t storedLength = readLittleEndian32(record, kRecordStoredLengthOffset);
  if (record.size() - kRecordHeaderBytes < storedLength) {
    corrupt(fmt::format("record runs past end of pack {}", packID));
  }
  PackStore::RawRecord raw;
  raw.flags.bits = readLittleEndian16(record, kRecordFlagsOffset);
  raw.dictionaryID = readLittleEndian16(record, kRecordDictionaryOffset);
  raw.originalLength = readLittleEndian32(record, kRecordOriginalLengthOffset);
  raw.payload = record.substr(kRecordHeaderBytes, storedLength);
  if (Deflate::crc32(raw.payload) != readLittleEndian32(record, kRecordChecksumOffset)) {
    throw PackError(PackError::ChecksumMismatch{packID, offset});
  }
  return raw;
}

}  // namespace

PackStore::PackStore(fs::path directory, std::int64_t maxPackBytes, bool readOnly)
    : directory_(std::move(directory)),
      maxPackBytes_(std::max<std::int64_t>(maxPackBytes, 0)),
      readOnly_(readOnly) {
  if (!readOnly_) createFolders(directory_);
}

std::string PackStore::packName(std::int64_t packID) { return fmt::format("{:08}.pack", packID); }

fs::path PackStore::packURL(std::int64_t packID) const { return directory_ / packName(packID); }

std::int64_t PackStore::openForWriting(std::int64_t packID) {
  const std::lock_guard lock(mutex_);
  openLocked(packID);
  return currentOffset_;
}

void PackStore::openLocked(std::int64_t packID) {
  if (readOnly_) throw PackError(PackError::ReadOnly{});
  if (!file_ || currentPackID_ != packID) {
    closeLocked();
    const fs::path path = packURL(packID);
    std::error_code error;
    if (!fs::exists(path, error)) {
      // Only a pack known to be missing may be made: making it replaces what stands there.
      if (error) throw FileError(FileError::Action::open, path, error.value());
      Bytes header(kPackMagic);
      header.resize(kPackHeaderBytes, '\0');
      writeFileAtomically(path, header);
    } else if (isImmutable(path)) {
      throw PackError(PackError::ReadOnly{});
    }
    forgetLocked(packID);
    file_ = AppendFile::open(path);
    currentPackID_ = packID;
    endUnknown_ = true;
    unsynced_ = true;  // a process that died may have left records that only the cache holds
  }
  if (endUnknown_) {
    currentOffset_ = static_cast<std::int64_t>(file_->size());
    endUnknown_ = false;
  }
}

void PackStore::closeLocked() {
  if (!file_) return;
  syncLocked();
  file_.reset();
  currentMapping_.reset();
  currentPackID_ = 0;
  currentOffset_ = 0;
  endUnknown_ = false;
}

PackLocation PackStore::append(BytesView payload, std::size_t originalLength, RecordFlags flags,
                               std::uint16_t dictionaryID, std::int64_t packID) {
  if (payload.size() > kMaxRecordPayloadBytes) {
    throw PackError(PackError::TooLarge{payload.size()});
  }
  if (originalLength > std::numeric_limits<std::uint32_t>::max()) {
    throw PackError(PackError::TooLarge{originalLength});
  }
  const std::lock_guard lock(mutex_);
  refuseAfterFailedSync();
  openLocked(packID);
  const Bytes header = recordHeader(payload, originalLength, flags, dictionaryID);
  currentMapping_.reset();
  unsynced_ = true;
  endUnknown_ = true;
  file_->append(header);
  file_->append(payload);
  endUnknown_ = false;

  const PackLocation location{packID, currentOffset_, static_cast<std::int64_t>(payload.size()),
                              static_cast<std::int64_t>(originalLength)};
  const std::size_t recordBytes = header.size() + payload.size();
  currentOffset_ += static_cast<std::int64_t>(recordBytes);
  appended_ += recordBytes;
  return location;
}

PackStore::RawRecord PackStore::read(const PackLocation& location) {
  Mapping mapping;
  {
    const std::lock_guard lock(mutex_);
    bool cached = false;
    std::tie(mapping, cached) = mapLocked(location.packID);
    // Another process may write to this archive while we read, so the pack may have grown.
    if (cached && recordEnd(mapping->bytes(), location.offset) > mapping->bytes().size()) {
      forgetLocked(location.packID);
      mapping = mapLocked(location.packID).first;
    }
  }
  RawRecord record = parseRecord(mapping->bytes(), location.packID, location.offset);
  record.mapping = std::move(mapping);
  return record;
}

PackStore::Mapping PackStore::mapFile(std::int64_t packID) const {
  try {
    return MappedFile::open(packURL(packID));
  } catch (const FileError& error) {
    if (error.error() == ENOENT) throw PackError(PackError::PackMissing{packName(packID)});
    throw;
  }
}

std::pair<PackStore::Mapping, bool> PackStore::mapLocked(std::int64_t packID) {
  if (file_ && packID == currentPackID_) {
    if (unsynced_ && !syncFailure_) {
      try {
        syncLocked();
      } catch (const FileError&) {
        // What is asked for can still be read; the next writing meets the failure.
      }
    }
    if (!currentMapping_) currentMapping_ = mapFile(packID);
    return {currentMapping_, false};
  }
  const auto known = std::find_if(readCache_.begin(), readCache_.end(),
                                  [packID](const auto& cached) { return cached.first == packID; });
  if (known != readCache_.end()) {
    std::rotate(known, known + 1, readCache_.end());
    return {readCache_.back().second, true};
  }
  Mapping mapping = mapFile(packID);
  if (readCache_.size() >= kReadCacheLimit) readCache_.erase(readCache_.begin());
  readCache_.emplace_back(packID, mapping);
  return {std::move(mapping), false};
}

void PackStore::forgetLocked(std::int64_t packID) {
  std::erase_if(readCache_, [packID](const auto& cached) { return cached.first == packID; });
}

void PackStore::invalidateCache() {
  const std::lock_guard lock(mutex_);
  readCache_.clear();
  currentMapping_.reset();
}

void PackStore::flush() {
  const std::lock_guard lock(mutex_);
  if (file_) syncLocked();
}

void PackStore::syncLocked() {
  refuseAfterFailedSync();
  if (!unsynced_) return;
  try {
    file_->sync();
  } catch (const FileError& error) {
    syncFailure_ = error;
    throw;
  }
  unsynced_ = false;
}

void PackStore::refuseAfterFailedSync() const {
  if (syncFailure_) throw FileError(*syncFailure_);
}

bool PackStore::needsRollover(std::int64_t bytes) const {
  const std::lock_guard lock(mutex_);
  return currentOffset_ > static_cast<std::int64_t>(kPackHeaderBytes) &&
         bytes > maxPackBytes_ - currentOffset_;
}

PackStore::Seal PackStore::seal(std::int64_t packID, bool enforceWORM) {
  const std::lock_guard lock(mutex_);
  if (readOnly_) throw PackError(PackError::ReadOnly{});
  refuseAfterFailedSync();
  if (packID == currentPackID_) closeLocked();
  forgetLocked(packID);
  Seal seal = hashPack(packID);
  if (enforceWORM) {
    const fs::path path = packURL(packID);
    std::error_code ignored;
    fs::permissions(path, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read,
                    ignored);
    seal.immutable = setImmutable(path);
  }
  return seal;
}

std::string PackStore::digest(std::int64_t packID) const { return hashPack(packID).sha256; }

PackStore::Seal PackStore::hashPack(std::int64_t packID) const {
  const fs::path path = packURL(packID);
  FileHandle file;
  try {
    file = openForReading(path);
  } catch (const FileError& error) {
    if (error.error() == ENOENT) throw PackError(PackError::PackMissing{packName(packID)});
    throw;
  }
  Sha256 hash;
  Seal seal;
  Bytes chunk(kHashChunkBytes, '\0');
  for (;;) {
    const ssize_t got = ::read(file.descriptor(), chunk.data(), chunk.size());
    if (got < 0) {
      if (errno == EINTR) continue;
      throw FileError(FileError::Action::read, path, errno);
    }
    if (got == 0) break;
    hash.update(BytesView(chunk).substr(0, static_cast<std::size_t>(got)));
    seal.bytes += got;
  }
  seal.sha256 = hexEncode(hash.finish());
  return seal;
}

void PackStore::unlockForAppend(std::int64_t packID) {
  const std::lock_guard lock(mutex_);
  const fs::path path = packURL(packID);
  clearImmutable(path);
  std::error_code ignored;
  fs::permissions(path,
                  fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read |
                      fs::perms::others_read,
                  ignored);
}

std::uint64_t PackStore::bytesAppended() const {
  const std::lock_guard lock(mutex_);
  return appended_;
}

}  // namespace ambervane
