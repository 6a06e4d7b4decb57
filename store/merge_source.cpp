#include "store/merge_source.h"

#include <exception>
#include <utility>

#include "store/message_reader.h"

namespace ambervane {
namespace {

/// Mapped packs count as memory: they are let go each time so much mail has been read.
constexpr std::size_t kForgetBytes = 33554432;

SourceMessage sourceMessage(const MessageRow& row, const TravellingMessage& travelling) {
  SourceMessage message;
  message.internalDate = row.internalAt;
  if (row.origin == "reconstructed") {
    message.origin = MessageOrigin::reconstructed;
    message.reconstructedFrom = row.originSource;
  }
  if (!travelling.filings.empty()) {
    const TravellingMessage::Filing& first = travelling.filings.front();
    message.flags = flagsFromText(first.flags);
    if (first.uid) message.sourceIdentifier = std::to_string(*first.uid);
  }
  return message;
}

}  // namespace

std::optional<std::int64_t> TravellingMail::estimatedCount() const {
  return source_.catalog().database().count("SELECT COUNT(*) FROM message WHERE erased = 0");
}

void TravellingMail::forEachMessage(const Body& body, const Unreadable& unreadable) {
  SQLiteDatabase& db = source_.catalog().database();
  std::size_t sinceForgotten = 0;
  db.forEachRow("SELECT * FROM message WHERE erased = 0 ORDER BY id", {}, [&](const Row& columns) {
    const MessageRow row(columns);
    TravellingMessage travelling;
    travelling.id = row.id;
    SourceMessage message;
    try {
      travelling = describe(row);
      message = sourceMessage(row, travelling);
      message.raw = rawMessage(source_, row);
    } catch (const std::exception& error) {
      put(std::move(travelling));
      unreadable("message " + std::to_string(row.id) + ": " + error.what());
      return true;
    }
    put(std::move(travelling));
    sinceForgotten += message.raw.size();
    if (sinceForgotten >= kForgetBytes) {
      source_.packs().invalidateCache();
      sinceForgotten = 0;
    }
    return body(std::move(message));
  });
}

/// All columns are asked for: a catalog of an older format lacks some, and they read as NULL then.
TravellingMessage TravellingMail::describe(const MessageRow& row) {
  SQLiteDatabase& db = source_.catalog().database();
  TravellingMessage message;
  message.id = row.id;
  message.digest = row.sha256;
  message.retentionClass = row.retentionClass;
  db.forEachRow(
      "SELECT * FROM message_folder WHERE message_id = ? ORDER BY added_at, folder_id", {row.id},
      [&](const Row& filed) {
        message.filings.push_back({filed.integer("folder_id"), filed.optionalInteger("uid"),
                                   filed.string("flags"), filed.date("removed_at")});
        return true;
      });
  db.forEachRow(
      "SELECT t.name AS name, t.colour AS colour FROM message_tag mt JOIN tag t ON t.id = "
      "mt.tag_id WHERE mt.message_id = ? ORDER BY mt.added_at, t.id",
      {row.id}, [&](const Row& tagged) {
        message.tags.push_back({0, tagged.string("name"), tagged.string("colour"), Date{}, 0});
        return true;
      });
  message.notes = CatalogAnnotations(source_.catalog()).notes(row.id);
  db.forEachRow("SELECT hold_id FROM message_hold WHERE message_id = ?", {row.id},
                [&](const Row& held) {
                  message.holds.push_back(held.string("hold_id"));
                  return true;
                });
  return message;
}

void TravellingMail::put(TravellingMessage message) {
  const std::lock_guard lock(mutex_);
  waiting_.push_back(std::move(message));
}

TravellingMessage TravellingMail::take() {
  const std::lock_guard lock(mutex_);
  TravellingMessage message = std::move(waiting_.front());
  waiting_.pop_front();
  return message;
}

}  // namespace ambervane
