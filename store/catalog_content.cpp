// What concerns the catalog's content as a whole.

#include "store/catalog.h"
#include "store/pack_format.h"

namespace ambervane {

std::string Catalog::contentFingerprint() {
  return "generation-" + meta("mutation_generation").value_or("0");
}

std::optional<std::string> Catalog::messageDigest(std::int64_t id) {
  std::optional<std::string> digest;
  db_->forEachRow("SELECT sha256 FROM message WHERE id = ?", {id}, [&digest](const Row& row) {
    digest = row.string("sha256");
    return false;
  });
  return digest;
}

void Catalog::markErased(std::int64_t id, const std::string& reason) {
  // Threads without identifiers are keyed by their subject.
  db_->run(
      "UPDATE message SET erased = 1, erased_at = ?, erasure_reason = ?, subject = '[erased]', "
      "subject_norm = '', to_addrs = '', cc_addrs = '', participants = '', from_name = NULL, "
      "snippet = NULL, thread_key = CASE WHEN thread_key GLOB 'subj:*' THEN NULL ELSE thread_key "
      "END WHERE id = ?",
      {clock_(), reason, id});
  db_->run("DELETE FROM message_header WHERE message_id = ?", {id});
  db_->run("UPDATE attachment SET filename = NULL WHERE message_id = ?", {id});
  removeFromIndex(id);
}

std::vector<std::string> Catalog::releaseBlobsOf(std::int64_t messageID) {
  std::vector<std::string> unused;
  for (const AttachmentRow& attachment : attachments(messageID)) {
    if (!attachment.blobID) continue;
    releaseBlob(*attachment.blobID);
    db_->forEachRow(
        "SELECT hash FROM blob WHERE id = ? AND refcount <= 0 AND (record_flags & ?) <> 0",
        {*attachment.blobID, RecordFlags::kEncrypted}, [&unused](const Row& row) {
          unused.push_back(row.string("hash"));
          return false;
        });
  }
  return unused;
}

std::vector<std::int64_t> Catalog::erasedMessages() {
  std::vector<std::int64_t> ids;
  db_->forEachRow("SELECT id FROM message WHERE erased = 1 ORDER BY id", {},
                  [&ids](const Row& row) {
                    ids.push_back(row.integer("id"));
                    return true;
                  });
  return ids;
}

bool Catalog::forgetErasedText() {
  // A row deleted from an index without content leaves its words in the segments until these are
  // written anew. The pages given up are overwritten (secure_delete), in the log at first.
  optimizeSearchIndex();
  return db_->checkpoint();
}

}  // namespace ambervane
