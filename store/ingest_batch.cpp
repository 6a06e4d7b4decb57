#include "store/ingest_batch.h"

#include <chrono>
#include <map>

namespace ambervane {
namespace {

/// Messages under one flush, and how long it is put off for more of them. Each commit writes the
/// pages of the index anew that the one before it wrote.
constexpr std::size_t kMaximumGroup = 256;
constexpr std::chrono::seconds kMaximumDelay{1};

/// The journal cannot take back what it says of a batch that was rolled back; it says so instead.
void recordBrokenBatch(MailArchive& archive, const std::string& subject, std::int64_t entriesBefore,
                       const std::string& error) noexcept {
  try {
    const std::int64_t entriesAfter = archive.journal().count();
    std::map<std::string, std::string> details = {{"error", error}};
    if (entriesAfter > entriesBefore) {
      details["note"] = "entries " + std::to_string(entriesBefore + 1) + " to " +
                        std::to_string(entriesAfter) +
                        " belong to a batch that was not kept; its messages are not in the "
                        "archive";
    }
    archive.journal().append(AuditAction::integrityFailed, subject, details);
    // Told already, so no later opening need take these messages for lost.
    noteJournalCommitted(archive);
  } catch (const std::exception&) {
    // The disk that failed the batch may fail this too; the run's end is told in any case.
  }
}

}  // namespace

void afterBatch(MailArchive& archive) {
  archive.dictionaries().trainIfDue();
  archive.sealIfDue();
}

void commitInBatch(MailArchive& archive, const std::string& subject,
                   const std::function<bool()>& commitNext, const std::function<void()>& kept) {
  for (bool isMore = true; isMore;) {
    const std::int64_t entriesBefore = archive.journal().count();
    try {
      IngestBatch batch(archive);
      // A seal counts messages, so those before it must be there to stay.
      do {
        isMore = commitNext();
      } while (isMore && !archive.isSealDue());
      batch.finish();
    } catch (const std::exception& error) {
      recordBrokenBatch(archive, subject, entriesBefore, error.what());
      throw;
    }
    if (kept) kept();
    afterBatch(archive);
  }
}

void commitReady(MailArchive& archive, const std::string& subject, IngestPipeline::Batch first,
                 IngestPipeline& pipeline,
                 const std::function<void(IngestPipeline::Item&)>& commitItem) {
  std::size_t at = 0;
  std::size_t taken = 0;
  const auto deadline = std::chrono::steady_clock::now() + kMaximumDelay;
  const auto hasAnother = [&] {
    while (at == first.items.size()) {
      // What is prepared after training is smaller, so the group ends when training is due.
      if (taken >= kMaximumGroup || archive.dictionaries().isTrainingDue()) return false;
      first = {};
      at = 0;
      if (!pipeline.waitForPrepared(deadline)) return false;
      first = *pipeline.next();
    }
    return true;
  };
  commitInBatch(archive, subject, [&] {
    if (!hasAnother()) return false;
    commitItem(*first.items[at++]);
    ++taken;
    return true;
  });
}

}  // namespace ambervane
