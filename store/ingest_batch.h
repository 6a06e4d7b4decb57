#ifndef AMBERVANE_STORE_INGEST_BATCH_H_
#define AMBERVANE_STORE_INGEST_BATCH_H_

#include <functional>
#include <string>

#include "store/ingest_pipeline.h"
#include "store/lost_messages.h"
#include "store/mail_archive.h"

namespace ambervane {

/// One transaction of the catalog around several commits, with one flush of each file at its end.
/// Unless `finish` has returned, destruction rolls the catalog back.
class IngestBatch {
 public:
  explicit IngestBatch(MailArchive& archive) : archive_(archive) {
    archive_.journal().beginBatch();
    try {
      archive_.keys().beginBatch();
      archive_.catalog().beginBatch();
    } catch (...) {
      archive_.keys().rollbackBatch();
      endJournalBatch();
      throw;
    }
  }
  ~IngestBatch() {
    if (finished_) return;
    archive_.keys().rollbackBatch();
    archive_.catalog().rollbackBatch();
    archive_.solidBlock().rollback();
    endJournalBatch();
  }
  IngestBatch(const IngestBatch&) = delete;
  IngestBatch& operator=(const IngestBatch&) = delete;

  /// Makes everything durable: keys, pack, sidecar, journal, then the catalog's commit. Throws what
  /// any of them throws; nothing of the batch is in the catalog then. `afterBatch` is to follow.
  void finish() {
    archive_.keys().commitBatch();
    archive_.packs().flush();
    archive_.noteDurablePack();
    archive_.dictionaries().saveProgress();
    archive_.catalog().bumpMutationGeneration();
    archive_.flushSidecars();
    archive_.journal().endBatch();
    noteJournalCommitted(archive_);
    archive_.catalog().commitBatch();
    archive_.solidBlock().commit();
    finished_ = true;
  }

 private:
  void endJournalBatch() noexcept {
    try {
      archive_.journal().endBatch();
    } catch (const std::exception&) {
      // The batch has failed already, and that failure is the one to tell.
    }
  }

  MailArchive& archive_;
  bool finished_ = false;
};

/// What follows a batch that is there to stay: training, and a seal that has become due, which so
/// counts nothing that could still be taken back. Throws what `MailArchive::sealIfDue` throws; the
/// batch is kept all the same.
void afterBatch(MailArchive& archive);

/// Calls `commitNext` until it returns false, in one batch, or in several where a seal becomes due.
/// `kept` is called when what has been committed is there to stay; it may be empty. When one fails,
/// those of its batch are not kept, the journal says under `subject` which of its entries do not
/// hold, and the failure goes on to the caller.
void commitInBatch(MailArchive& archive, const std::string& subject,
                   const std::function<bool()>& commitNext,
                   const std::function<void()>& kept = nullptr);

/// Commits `first` and, under the same flush, the batches behind it that become ready within about
/// a second: a slow disk so delays a group of batches once and not each of them. Throws as
/// `commitInBatch`.
void commitReady(MailArchive& archive, const std::string& subject, IngestPipeline::Batch first,
                 IngestPipeline& pipeline,
                 const std::function<void(IngestPipeline::Item&)>& commitItem);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_INGEST_BATCH_H_
