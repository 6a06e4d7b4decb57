#include "store/rebuild_run.h"

#include "store/message_rows.h"

namespace ambervane {
namespace {

constexpr std::size_t kMostProblems = 20;
/// Messages in one transaction.
constexpr std::size_t kMessagesPerCommit = 1000;
/// What of the packs is read before their memory is let go.
constexpr std::size_t kMostBytesMapped = 33554432;
constexpr const char* kRecoveredKind = "recovered";

}  // namespace

std::uint32_t TextNumbers::numberOf(std::string_view text) {
  const auto known = numbers_.find(text);
  if (known != numbers_.end()) return known->second;
  const auto number = static_cast<std::uint32_t>(texts_.size());
  texts_.emplace_back(text);
  numbers_.emplace(text, number);
  return number;
}

RebuildRun::RebuildRun(MailArchive& archive, const JournalArrivals& arrivals, const Report& report)
    : archive_(archive),
      catalog_(archive.catalog()),
      arrivals_(arrivals),
      report_(report),
      rebuilder_(archive, arrivals) {}

void RebuildRun::noteProblem(std::int64_t packID, const std::string& text) {
  if (progress_.problems.size() >= kMostProblems) return;
  progress_.problems.push_back(PackStore::packName(packID) + ": " + text);
}

bool RebuildRun::store(RebuiltMessage& message, const std::string& ofClass) {
  const PreparedMessage& prepared = message.prepared;
  const auto digest = rawDigest(prepared.hash);
  const JournalArrival* const arrival = arrivals_.find(*digest);
  std::optional<std::int64_t> id = message.id;
  if (!id && arrival != nullptr && arrival->id > 0) id = arrival->id;
  if (id && catalog_.messageDigest(*id)) {
    // Without its own number the key of an encrypted message could not be found any more.
    if (message.flags.encrypted()) return false;
    id.reset();
  }

  const RetentionPolicy& policy = archive_.policy();
  const auto attachments = attachmentsOf(prepared);
  MessageInsert insert = insertOf(prepared);
  std::optional<RetentionClass> known = policy.retentionClass(ofClass);
  if (!known && ofClass.empty() && arrival != nullptr) {
    known = policy.retentionClass(arrivals_.text(arrival->ofClass));
  }
  if (!known && ofClass.empty()) {
    known = policy.classify(insert.participants, "", insert.subject, !attachments.empty());
  }
  const RetentionClass retention = known.value_or(policy.defaultClass);
  const Date ingestedAt = arrival != nullptr ? Date{arrival->seconds} : archive_.now();
  const Date dated = insert.sentAt.value_or(insert.internalAt.value_or(ingestedAt));
  insert.retentionClass = retention.identifier;
  insert.expiresAt = policy.expiryDate(dated, ingestedAt, retention);
  insert.storedSize = message.storedSize;
  insert.packID = message.place.packID;
  insert.packOffset = message.place.offset;
  insert.recordFlags = message.flags.bits;
  insert.dictionaryID = message.dictionaryID;
  insert.origin = "received";
  if (arrival != nullptr && arrivals_.text(arrival->origin) == "reconstructed") {
    insert.origin = "reconstructed";
    insert.originSource = arrivals_.text(arrival->originSource);
  }

  const std::int64_t row = catalog_.reserveMessage(prepared.hash, id, ingestedAt);
  writeMessageRows(catalog_, row, insert, attachments, prepared);
  if (message.place.member) {
    catalog_.attachSolidRecord(row, message.place.packID, message.place.offset,
                               *message.place.member, message.storedSize, message.flags.bits,
                               message.dictionaryID);
  }
  noteRead(prepared.size);
  ++progress_.messages;
  ++uncommitted_;
  return true;
}

std::vector<StoredAttachment> RebuildRun::attachmentsOf(const PreparedMessage& message) {
  std::vector<StoredAttachment> attachments;
  for (const PreparedBlob& blob : message.extracted) {
    const auto row = catalog_.blob(blob.ref.encodedHash);
    attachments.push_back(
        storedAttachment(blob.ref, row ? std::optional<std::int64_t>(row->id) : std::nullopt));
  }
  for (const AttachmentRef& ref : message.inlineAttachments) {
    attachments.push_back(storedAttachment(ref, std::nullopt));
  }
  return attachments;
}

void RebuildRun::file(const SidecarLine& line) {
  file(hexEncode({line.digest.data(), line.digest.size()}), texts_.text(line.account),
       texts_.text(line.folder), line.uid, texts_.text(line.flags));
}

void RebuildRun::file(const std::string& digest, const std::string& account,
                      const std::string& folder, std::optional<std::int64_t> uid,
                      const std::string& flags) {
  std::optional<std::int64_t> id;
  std::optional<Date> sentAt;
  catalog_.database().forEachRow("SELECT id, sent_at FROM message WHERE sha256 = ?", {digest},
                                 [&](const Row& row) {
                                   id = row.integer("id");
                                   sentAt = row.date("sent_at");
                                   return false;
                                 });
  if (id) catalog_.linkMessage(*id, folderID(account, folder), uid, flags, sentAt);
}

std::int64_t RebuildRun::folderID(const std::string& account, const std::string& folder) {
  const auto [of, isNewAccount] = accounts_.try_emplace(account, 0);
  if (isNewAccount) {
    of->second =
        catalog_.upsertAccount(account, kRecoveredKind, std::nullopt, std::nullopt, std::nullopt);
  }
  const auto [known, isNew] = folders_.try_emplace({of->second, folder}, 0);
  if (isNew) known->second = catalog_.upsertFolder(of->second, folder);
  return known->second;
}

void RebuildRun::commitNowAndThen() {
  if (uncommitted_ < kMessagesPerCommit) return;
  uncommitted_ = 0;
  catalog_.commitBatch();
  catalog_.beginBatch();
  report();
}

void RebuildRun::noteRead(std::size_t bytes) {
  bytesRead_ += bytes;
  if (bytesRead_ < kMostBytesMapped) return;
  bytesRead_ = 0;
  archive_.packs().invalidateCache();
}

}  // namespace ambervane
