#include "store/unnamed_records.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "mailcore/looks_like_mail.h"
#include "store/key_error.h"
#include "store/message_reader.h"
#include "store/message_record.h"
#include "store/pack_error.h"
#include "store/pack_scan.h"
#include "store/unnamed_blobs.h"

namespace ambervane {
namespace {

/// Keys tried on encrypted records of unknown messages. As a rule the first one tried opens it.
constexpr std::int64_t kMostKeysTried = 1'000'000;

/// Pages already walked are given back in steps of this many bytes.
constexpr std::size_t kForgetBytes = std::size_t{16} << 20;

/// A message that the journal knows and the catalog does not, which a record may be.
struct Sought {
  std::int64_t id = 0;
  std::string digest;
};

class UnnamedRestorer {
 public:
  UnnamedRestorer(RebuildRun& run, UnprovedMessages& unproved)
      : run_(run),
        archive_(run.archive()),
        catalog_(run.archive().catalog()),
        unproved_(unproved) {}

  std::int64_t restore(const std::vector<std::int64_t>& packs) {
    for (const std::int64_t pack : packs) scan(pack);
    retryUnproved();
    for (const RecordPlace& place : records_) restoreRecord(place);
    return restored_;
  }

 private:
  void scan(std::int64_t packID) {
    std::shared_ptr<const MappedFile> file;
    try {
      file = MappedFile::open(archive_.packs().packURL(packID));
    } catch (const FileError& error) {
      run_.noteProblem(packID, error.what());
      return;
    }
    const auto known = provedRecords(packID);
    std::size_t forgotten = 0;
    scanPack(
        file->bytes(),
        [&](std::size_t offset) {
          if (offset - forgotten >= kForgetBytes) file->forgetBefore(forgotten = offset);
          return known.contains(static_cast<std::int64_t>(offset));
        },
        [&](const ScannedRecord& record) {
          if (record.flags.blob()) {
            blobs_.add(packID, record);
          } else {
            records_.push_back({packID, static_cast<std::int64_t>(record.offset), std::nullopt});
          }
        });
  }

  /// Offsets of the records of a pack that are in the catalog whole.
  std::set<std::int64_t> provedRecords(std::int64_t packID) {
    std::set<std::int64_t> offsets;
    const auto take = [&](const Row& row) {
      offsets.insert(row.integer("pack_offset"));
      return true;
    };
    SQLiteDatabase& database = catalog_.database();
    database.forEachRow("SELECT pack_offset FROM blob WHERE pack_id = ?", {packID}, take);
    database.forEachRow(
        "SELECT pack_offset FROM message WHERE pack_id = ? AND block_member IS NULL", {packID},
        take);
    database.forEachRow(
        "SELECT pack_offset, COUNT(DISTINCT block_member) AS members FROM message WHERE pack_id = "
        "? AND block_member IS NOT NULL GROUP BY pack_offset",
        {packID}, [&](const Row& row) {
          const auto offset = row.integer("pack_offset");
          const auto inBlock = run_.rebuilder().blocks().memberCount(packID, offset);
          if (row.integer("members") >= static_cast<std::int64_t>(inBlock)) take(row);
          return true;
        });
    return offsets;
  }

  /// A blob that no sidecar named was what these lacked, if anything was.
  void retryUnproved() {
    if (blobs_.isEmpty()) return;
    for (auto at = unproved_.begin(); at != unproved_.end();) {
      at = retry(at->first, at->second) ? unproved_.erase(at) : std::next(at);
    }
  }

  bool retry(const RawDigest& digest, const std::vector<SidecarLine>& lines) {
    const std::string hex = hexEncode({digest.data(), digest.size()});
    const JournalArrival* const arrival = run_.arrivals().find(digest);
    for (const SidecarLine& line : lines) {
      try {
        std::optional<std::int64_t> id;
        if (arrival != nullptr && arrival->id > 0) id = arrival->id;
        const PlainRecord record = run_.rebuilder().plainRecord(line.place, hex, id);
        if (!findBlobs(record)) continue;
        RebuiltMessage message = run_.rebuilder().describe(record, line.place);
        if (message.prepared.hash != hex) continue;
        message.id = id;
        message.prepared.source.internalDate = line.internalDate;
        if (!run_.store(message, run_.texts().text(line.ofClass))) continue;
      } catch (const SQLiteError&) {
        throw;
      } catch (const std::exception&) {
        continue;
      }
      for (const SidecarLine& each : lines) run_.file(each);
      run_.commitNowAndThen();
      return true;
    }
    return false;
  }

  void restoreRecord(const RecordPlace& place) {
    try {
      PackLocation location;
      location.packID = place.packID;
      location.offset = place.offset;
      const PackStore::RawRecord raw = archive_.packs().read(location);
      if (raw.flags.solidBlock()) {
        restoreMembers(place);
      } else if (raw.flags.encrypted()) {
        restoreEncrypted(place, raw.payload);
      } else {
        restoreMessage(place, "", std::nullopt);
      }
    } catch (const SQLiteError&) {
      throw;
    } catch (const std::exception& error) {
      run_.noteProblem(place.packID, error.what());
    }
    run_.commitNowAndThen();
  }

  void restoreMembers(const RecordPlace& block) {
    const auto bytes = run_.rebuilder().blocks().block(archive_, block.packID, block.offset);
    const auto members = run_.rebuilder().blocks().memberCount(block.packID, block.offset);
    for (std::size_t i = 0; i < members; ++i) {
      restoreMessage({block.packID, block.offset, static_cast<std::int64_t>(i)}, "", std::nullopt);
    }
  }

  void restoreEncrypted(const RecordPlace& place, BytesView payload) {
    if (!hasSought_) listSought();
    for (std::size_t tried = 0; tried < sought_.size() && keysTried_ < kMostKeysTried; ++tried) {
      const std::size_t at = (nextSought_ + tried) % sought_.size();
      ++keysTried_;
      try {
        const auto key = archive_.keys().key(sought_[at].id);
        if (!key) continue;
        ContentKeyStore::open(payload, *key, sought_[at].digest);
      } catch (const KeyError&) {
        continue;
      }
      const Sought found = sought_[at];
      sought_.erase(sought_.begin() + static_cast<std::ptrdiff_t>(at));
      nextSought_ = at;
      restoreMessage(place, found.digest, found.id);
      return;
    }
  }

  /// In the order in which they came, which is that of their records.
  void listSought() {
    hasSought_ = true;
    std::vector<const JournalArrival*> missing;
    for (const JournalArrival& arrival : run_.arrivals().all()) {
      if (arrival.id > 0 && !catalog_.messageDigest(arrival.id)) missing.push_back(&arrival);
    }
    std::ranges::sort(missing, {}, &JournalArrival::seq);
    for (const JournalArrival* arrival : missing) {
      sought_.push_back({arrival->id, hexEncode({arrival->digest.data(), arrival->digest.size()})});
    }
  }

  /// `digest` is known of an encrypted message alone.
  void restoreMessage(const RecordPlace& place, const std::string& digest,
                      std::optional<std::int64_t> id) {
    const PlainRecord record = run_.rebuilder().plainRecord(place, digest, id);
    if (!findBlobs(record)) return;
    RebuiltMessage message = run_.rebuilder().describe(record, place);
    const std::string& hash = message.prepared.hash;
    const bool isWhole = digest.empty() || digest == hash;
    const auto raw = rawDigest(hash);
    const bool isMail = message.prepared.looksLikeMail || run_.arrivals().find(*raw) != nullptr;
    if (!isWhole || !isMail || catalog_.messageID(hash)) return;
    message.id = id;
    if (!run_.store(message, "")) return;
    run_.file(hash, kRecoveredAccount, kRecoveredFolder, std::nullopt, "");
    unproved_.erase(*raw);
    ++restored_;
  }

  /// Whether all blobs of a message are in the catalog, those found now included.
  bool findBlobs(const PlainRecord& record) {
    for (const auto& segment : MessageRecord::decode(record.bytes).segments) {
      const auto* const blob = std::get_if<MessageRecord::Blob>(&segment);
      if (blob == nullptr || catalog_.blob(blob->hash)) continue;
      const auto found = blobs_.take(archive_, blob->hash, blob->length);
      if (!found) return false;
      catalog_.insertBlob(*found);
      ++run_.progress().blobs;
    }
    return true;
  }

  RebuildRun& run_;
  MailArchive& archive_;
  Catalog& catalog_;
  UnprovedMessages& unproved_;
  UnnamedBlobs blobs_;
  std::vector<RecordPlace> records_;
  std::vector<Sought> sought_;
  bool hasSought_ = false;
  std::size_t nextSought_ = 0;
  std::int64_t keysTried_ = 0;
  std::int64_t restored_ = 0;
};

}  // namespace

std::int64_t restoreUnnamed(RebuildRun& run, const std::vector<std::int64_t>& packs,
                            UnprovedMessages& unproved) {
  return UnnamedRestorer(run, unproved).restore(packs);
}

}  // namespace ambervane
