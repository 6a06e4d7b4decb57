#include "store/solid_block_writer.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "store/mail_archive.h"
#include "store/pack_error.h"
#include "store/pack_format.h"
#include "store/solid_block.h"
#include "store/xz_codec.h"

namespace ambervane {

void SolidBlockWriter::add(PendingSolidMember member) {
  bytes_ += member.plain.size();
  pending_.push_back(std::move(member));
}

bool SolidBlockWriter::addMailbox(std::int64_t messageID, RecoveryIndex::Message recovery) {
  const auto waiting = std::find_if(
      pending_.begin(), pending_.end(),
      [messageID](const PendingSolidMember& member) { return member.messageID == messageID; });
  if (waiting == pending_.end()) return false;
  waiting->recovery.push_back(std::move(recovery));
  return true;
}

std::span<PendingSolidMember> SolidBlockWriter::release() {
  const std::size_t first = released_.size();
  std::move(pending_.begin(), pending_.end(), std::back_inserter(released_));
  pending_.clear();
  bytes_ = 0;
  return std::span(released_).subspan(first);
}

void SolidBlockWriter::commit() noexcept {
  released_.clear();
  committed_ = pending_.size();
}

void SolidBlockWriter::rollback() noexcept {
  std::move(pending_.begin(), pending_.end(), std::back_inserter(released_));
  pending_ = std::exchange(released_, {});
  pending_.resize(std::min(committed_, pending_.size()));
  bytes_ = 0;
  for (const PendingSolidMember& member : pending_) bytes_ += member.plain.size();
}

std::size_t writeSolidBlock(MailArchive& archive, std::span<PendingSolidMember> members) {
  std::vector<BytesView> plains;
  plains.reserve(members.size());
  for (const PendingSolidMember& member : members) plains.emplace_back(member.plain);
  const Bytes block = SolidBlock::pack(plains);
  std::optional<Bytes> compressed = xzEncode(block);
  const bool isCompressed = compressed && compressed->size() < block.size();
  const Bytes& payload = isCompressed ? *compressed : block;
  RecordFlags flags = RecordFlags::make(isCompressed ? Codec::lzma : Codec::stored, false, false);
  flags.bits = static_cast<std::uint16_t>(flags.bits | RecordFlags::kSolidBlock);

  archive.requireReader(3);
  const std::int64_t pack =
      archive.nextPack(static_cast<std::int64_t>(payload.size() + kRecordHeaderBytes));
  const PackLocation location = archive.packs().append(payload, block.size(), flags, 0, pack);
  archive.catalog().atomically([&] {
    std::int64_t index = 0;
    for (const PendingSolidMember& member : members) {
      const std::int64_t share = solidShare(member.plain.size(), block.size(), payload.size());
      archive.catalog().attachSolidRecord(member.messageID, location.packID, location.offset,
                                          index++, share, flags.bits, 0);
    }
  });
  std::int64_t index = 0;
  for (PendingSolidMember& member : members) {
    for (RecoveryIndex::Message& line : member.recovery) {
      line.offset = location.offset;
      line.blockMember = index;
      archive.sidecars().noteMessage(pack, line);
    }
    ++index;
  }
  return members.size();
}

Bytes SolidBlockReader::member(MailArchive& archive, std::size_t index,
                               const PackLocation& location) {
  if (block_.empty() || packID_ != location.packID || offset_ != location.offset) {
    const PackStore::RawRecord record = archive.packs().read(location);
    std::optional<Bytes> plain = record.flags.deflated()
                                     ? Compressor::decompress(record.payload, record.flags.codec(),
                                                              {}, record.originalLength)
                                     : std::optional(Bytes(record.payload));
    if (!plain) {
      throw PackError(PackError::CorruptRecord{"decompression failed for a solid block in pack " +
                                               std::to_string(location.packID)});
    }
    block_ = *std::move(plain);
    packID_ = location.packID;
    offset_ = location.offset;
  }
  return Bytes(SolidBlock::member(index, block_));
}

}  // namespace ambervane
