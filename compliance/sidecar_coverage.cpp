#include "compliance/sidecar_coverage.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string_view>
#include <variant>
#include <vector>

#include "base/file.h"
#include "store/recovery_index.h"

namespace ambervane {
namespace {

/// One record under its digest in one place, as a number: of millions of records, two that differ
/// get the same one by an odd chance only.
std::uint64_t place(std::int64_t pack, std::int64_t offset, std::int64_t member,
                    std::string_view digest) {
  std::uint64_t mixed = std::hash<std::string_view>{}(digest);
  for (const std::int64_t part : {pack, offset, member}) {
    mixed = (mixed ^ static_cast<std::uint64_t>(part)) * 0x9e3779b97f4a7c15;
    mixed ^= mixed >> 29;
  }
  return mixed;
}

constexpr std::int64_t kNoMember = -1;

std::vector<std::uint64_t> placesInSidecars(MailArchive& archive) {
  std::vector<std::uint64_t> places;
  for (const PackRow& pack : archive.catalog().packs()) {
    RecoveryIndex::read(archive.packs().packURL(pack.id), [&](const RecoveryIndex::Entry& entry) {
      if (const auto* message = std::get_if<RecoveryIndex::Message>(&entry)) {
        places.push_back(place(pack.id, message->offset, message->blockMember.value_or(kNoMember),
                               message->hash));
      } else {
        const auto& blob = std::get<RecoveryIndex::Blob>(entry);
        places.push_back(place(pack.id, blob.offset, kNoMember, blob.hash));
      }
    });
  }
  std::sort(places.begin(), places.end());
  return places;
}

}  // namespace

bool recoveryIndexCoverage(MailArchive& archive) {
  const auto places = placesInSidecars(archive);
  bool covered = true;
  archive.catalog().database().forEachRow(
      "SELECT pack_id, pack_offset, COALESCE(block_member, -1) AS member, sha256 AS digest FROM "
      "message WHERE erased = 0 UNION ALL SELECT pack_id, pack_offset, -1, hash FROM blob WHERE "
      "refcount > 0",
      {}, [&](const Row& row) {
        covered = std::binary_search(places.begin(), places.end(),
                                     place(row.integer("pack_id"), row.integer("pack_offset"),
                                           row.integer("member"), row.string("digest")));
        return covered;
      });
  return covered;
}

std::vector<std::string> damagedDictionaries(MailArchive& archive) {
  std::vector<std::string> damaged;
  Catalog& catalog = archive.catalog();
  for (const Row& row : catalog.database().query("SELECT id FROM dictionary ORDER BY id")) {
    const auto id = static_cast<std::uint16_t>(row.integer("id"));
    const std::string name = fmt::format("{:05}.dict", id);
    const auto file = readFileIfPossible(archive.url() / "dict" / name);
    if (file != catalog.dictionary(id)) damaged.push_back(name);
  }
  return damaged;
}

}  // namespace ambervane
