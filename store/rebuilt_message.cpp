#include "store/rebuilt_message.h"

#include <algorithm>
#include <unordered_set>

#include "store/archive_error.h"
#include "store/key_error.h"
#include "store/message_reader.h"
#include "store/pack_error.h"
#include "store/solid_block.h"
#include "store/solid_block_writer.h"

namespace ambervane {
namespace {

[[noreturn]] void corrupt(const std::string& text, std::int64_t offset) {
  throw PackError(PackError::CorruptRecord{text + " at offset " + std::to_string(offset)});
}

PackLocation locationOf(const RecordPlace& place) {
  PackLocation location;
  location.packID = place.packID;
  location.offset = place.offset;
  return location;
}

}  // namespace

SolidBlockCache::Block SolidBlockCache::block(MailArchive& archive, std::int64_t packID,
                                              std::int64_t offset) {
  const Place place{packID, offset};
  std::promise<Block> promise;
  std::shared_future<Block> known;
  {
    const std::lock_guard lock(mutex_);
    const auto found = std::ranges::find(kept_, place, [](const auto& each) { return each.first; });
    if (found != kept_.end()) {
      known = found->second;
    } else {
      if (kept_.size() >= kMostKept) kept_.pop_front();
      kept_.emplace_back(place, promise.get_future().share());
    }
  }
  if (known.valid()) return known.get();
  try {
    const PackLocation location = locationOf({packID, offset, std::nullopt});
    auto decoded = std::make_shared<const Bytes>(
        decodedPayload(archive, location, "at offset " + std::to_string(offset)));
    const std::size_t members = SolidBlock::members(*decoded).size();
    promise.set_value(decoded);
    const std::lock_guard lock(mutex_);
    memberCounts_[place] = members;
    return decoded;
  } catch (...) {
    promise.set_exception(std::current_exception());
    throw;
  }
}

std::size_t SolidBlockCache::memberCount(std::int64_t packID, std::int64_t offset) const {
  const std::lock_guard lock(mutex_);
  const auto found = memberCounts_.find({packID, offset});
  return found == memberCounts_.end() ? 0 : found->second;
}

MessageRebuilder::MessageRebuilder(MailArchive& archive, const JournalArrivals& arrivals)
    : archive_(archive), arrivals_(arrivals) {
  settings_.attachmentText = archive.attachmentText();
  settings_.extractionThreshold = archive.manifest().attachmentExtractionThreshold;
  settings_.storesContent = false;
  std::unordered_set<std::int64_t> owned;
  for (const JournalArrival& arrival : arrivals.all()) owned.insert(arrival.id);
  unownedKeys_ = archive.keys().messagesWithKey();
  std::erase_if(unownedKeys_, [&owned](std::int64_t id) { return owned.contains(id); });
}

RebuiltMessage MessageRebuilder::message(const RecordPlace& place, const RawDigest& digest) {
  const std::string hex = hexEncode({digest.data(), digest.size()});
  const JournalArrival* const arrival = arrivals_.find(digest);
  std::optional<std::int64_t> id;
  if (arrival != nullptr && arrival->id > 0) id = arrival->id;
  const PlainRecord record = plainRecord(place, hex, id);
  RebuiltMessage message = describe(record, place);
  if (message.prepared.hash != hex) corrupt("digest mismatch", place.offset);
  message.id = id;
  return message;
}

RebuiltMessage MessageRebuilder::describe(const PlainRecord& record,
                                          const RecordPlace& place) const {
  SourceMessage source;
  source.raw = messageOf(archive_, record.bytes);
  auto prepared = prepareOne(std::move(source), settings_);
  if (!prepared) corrupt("an empty message", place.offset);
  RebuiltMessage message;
  message.prepared = *std::move(prepared);
  message.place = place;
  message.storedSize = record.storedSize;
  message.flags = record.flags;
  message.dictionaryID = record.dictionaryID;
  return message;
}

PlainRecord MessageRebuilder::plainRecord(const RecordPlace& place, const std::string& digest,
                                          std::optional<std::int64_t>& id) {
  const PackLocation location = locationOf(place);
  const PackStore::RawRecord raw = archive_.packs().read(location);
  if (raw.flags.solidBlock()) return memberOfBlock(place);
  PlainRecord record;
  record.storedSize = static_cast<std::int64_t>(raw.payload.size());
  record.flags = raw.flags;
  record.dictionaryID = raw.dictionaryID;
  record.bytes = decodedPayload(archive_, location, "at offset " + std::to_string(place.offset),
                                digest, [&] { return keyFor(place, digest, id); });
  return record;
}

PlainRecord MessageRebuilder::memberOfBlock(const RecordPlace& place) {
  if (!place.member) corrupt("a solid block member without a member number", place.offset);
  const PackStore::RawRecord raw = archive_.packs().read(locationOf(place));
  const auto block = blocks_.block(archive_, place.packID, place.offset);
  PlainRecord record;
  record.bytes = SolidBlock::member(static_cast<std::size_t>(*place.member), *block);
  record.storedSize = solidShare(record.bytes.size(), block->size(), raw.payload.size());
  record.flags = raw.flags;
  return record;
}

SymmetricKey MessageRebuilder::keyFor(const RecordPlace& place, const std::string& digest,
                                      std::optional<std::int64_t>& id) {
  if (id) {
    auto key = archive_.keys().key(*id);
    if (!key) throw ArchiveError(ArchiveError::Erased{*id});
    return *std::move(key);
  }
  const PackStore::RawRecord raw = archive_.packs().read(locationOf(place));
  const std::lock_guard lock(mutex_);
  for (std::size_t tried = 0; tried < unownedKeys_.size(); ++tried) {
    const std::size_t at = (nextKey_ + tried) % unownedKeys_.size();
    auto key = archive_.keys().key(unownedKeys_[at]);
    try {
      if (!key) continue;
      ContentKeyStore::open(raw.payload, *key, digest);
    } catch (const KeyError&) {
      continue;
    }
    id = unownedKeys_[at];
    unownedKeys_.erase(unownedKeys_.begin() + static_cast<std::ptrdiff_t>(at));
    nextKey_ = at;
    return *std::move(key);
  }
  corrupt("no key opens the record", place.offset);
}

}  // namespace ambervane
