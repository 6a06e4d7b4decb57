#include "store/content_erasure.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <vector>

#include "store/archive_error.h"
#include "store/pack_format.h"
#include "store/recorded_change.h"

namespace ambervane {
namespace {

/// Messages whose keys are destroyed in one go: each go rebuilds the key database, so that a list
/// as long as the archive would take quadratic time one by one.
constexpr std::size_t kMessagesPerGo = 500;
/// In the catalog's meta table: "1" from the first row blanked until the files have forgotten it.
constexpr const char* kUnfinishedKey = "unfinished_erasure";

/// The later half of an erasure, the keys of the messages being gone.
class Aftermath {
 public:
  Aftermath(MailArchive& archive, const ErasureRecorder& record)
      : archive_(archive), catalog_(archive.catalog()), record_(record) {}

  /// Blanks rows, and destroys the keys of attachments that nobody needs any more. `reasonOf` gives
  /// what the row is to say.
  template <typename ReasonOf>
  void blank(std::span<const std::int64_t> ids, const ReasonOf& reasonOf) {
    std::vector<std::string> unused;
    {
      RecordedChange change(archive_);
      for (const std::int64_t id : ids) {
        const auto row = catalog_.message(id);
        if (!row) continue;
        // References are given back once, whatever is erased again.
        std::vector<std::string> freed;
        if (!row->erased) freed = catalog_.releaseBlobsOf(id);
        catalog_.markErased(id, reasonOf(id));
        const auto keys = static_cast<std::int64_t>(freed.size());
        if (record_) record_(id, row->sha256, keys);
        ++result_.messages;
        result_.attachmentKeys += keys;
        std::ranges::move(freed, std::back_inserter(unused));
      }
      catalog_.setMeta(kUnfinishedKey, "1");
      catalog_.bumpMutationGeneration();
      change.finish();
    }
    if (!unused.empty()) archive_.keys().shredBlobKeys(unused);
  }

  ErasedContent finish() {
    result_.isForgotten = catalog_.forgetErasedText();
    if (result_.isForgotten) catalog_.setMeta(kUnfinishedKey, "0");
    return result_;
  }

 private:
  MailArchive& archive_;
  Catalog& catalog_;
  const ErasureRecorder& record_;
  ErasedContent result_;
};

/// Messages whose keys are destroyed and whose rows do not know it yet.
std::vector<std::int64_t> unblankedMessages(MailArchive& archive) {
  const auto shredded = archive.keys().shreddedMessages();
  if (shredded.empty()) return {};
  const auto erased = archive.catalog().erasedMessages();
  std::vector<std::int64_t> unblanked;
  std::ranges::set_difference(shredded, erased, std::back_inserter(unblanked));
  // A catalog that was rebuilt may give the identifier to another message, which has a key or needs
  // none.
  std::erase_if(unblanked, [&archive](std::int64_t id) {
    const auto row = archive.catalog().message(id);
    return !row || !RecordFlags{row->recordFlags}.encrypted();
  });
  return unblanked;
}

}  // namespace

bool canShred(MailArchive& archive, std::int64_t id) {
  // Records and attachments of a time when the policy asked for no keys stay readable for ever.
  const auto value = archive.catalog().database().scalar(
      "SELECT (m.record_flags & ?1) <> 0 AND NOT EXISTS (SELECT 1 FROM attachment a JOIN blob b ON "
      "b.id = a.blob_id WHERE a.message_id = m.id AND (b.record_flags & ?1) = 0) FROM message m "
      "WHERE m.id = ?2",
      {RecordFlags::kEncrypted, id});
  return value && *value == SQLValue(std::int64_t{1});
}

ErasedContent shredContent(MailArchive& archive, std::span<const std::int64_t> ids,
                           const std::string& reason, const std::string& requester,
                           const ErasureRecorder& record) {
  if (archive.readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  if (ids.empty()) return {};
  Aftermath aftermath(archive, record);
  for (std::size_t at = 0; at < ids.size(); at += kMessagesPerGo) {
    const auto some = ids.subspan(at, std::min(kMessagesPerGo, ids.size() - at));
    archive.keys().shred(some, reason, requester);
    aftermath.blank(some, [&reason](std::int64_t) { return reason; });
  }
  return aftermath.finish();
}

std::map<std::string, std::string> erasureDetails(std::int64_t id, const std::string& reason,
                                                  const std::string& requester,
                                                  std::int64_t attachmentKeys) {
  return {{"id", std::to_string(id)},
          {"reason", reason},
          {"requester", requester},
          {"method", "crypto-shredding (AES-256-GCM key destroyed)"},
          {"attachments_erased", std::to_string(attachmentKeys)}};
}

void noteUnfinishedErasure(MailArchive& archive) { archive.catalog().setMeta(kUnfinishedKey, "1"); }

bool completeErasures(MailArchive& archive) {
  const auto unblanked = unblankedMessages(archive);
  if (unblanked.empty() && archive.catalog().meta(kUnfinishedKey).value_or("0") == "0") {
    return false;
  }
  ContentKeyStore& keys = archive.keys();
  const ErasureRecorder record = [&](std::int64_t id, const std::string& sha256,
                                     std::int64_t attachmentKeys) {
    const Erasure erasure = keys.erasure(id).value_or(Erasure{});
    auto details = erasureDetails(id, erasure.reason.value_or(""), erasure.requester.value_or(""),
                                  attachmentKeys);
    details["note"] = "interrupted, completed when the archive was next opened";
    archive.journal().append(AuditAction::messageErased, sha256, details);
  };
  Aftermath aftermath(archive, record);
  aftermath.blank(unblanked, [&keys](std::int64_t id) {
    return keys.erasure(id).value_or(Erasure{}).reason.value_or("");
  });
  keys.shredBlobKeys(archive.catalog().unusedBlobs());
  aftermath.finish();
  return true;
}

}  // namespace ambervane
