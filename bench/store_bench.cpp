// The parts of an archive that write, each alone. Batches have the size that ingest gives them.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <string>

#include "bench/inputs.h"
#include "evidence/audit_journal.h"
#include "store/catalog.h"
#include "store/ingest_pipeline.h"
#include "store/message_rows.h"
#include "store/pack_store.h"
#include "tests/support/scratch_folder.h"

namespace ambervane::bench {
namespace {

const PreparedMessage& preparedMail(std::size_t number) {
  return preparedMails()[number % preparedMails().size()];
}

/// A digest for each number, so that the same message can be stored many times.
std::string digest(std::size_t number) {
  return fmt::format("{:016x}", number) + preparedMail(number).hash.substr(16);
}

/// Calls `step` once an iteration, and `endBatch` after as many as a batch of ingest holds; both
/// count. An iteration is one message.
template <typename Step, typename EndBatch>
void inBatches(benchmark::State& state, Step step, EndBatch endBatch) {
  const std::size_t batch = IngestPipeline::batchMessages();
  preparedMail(0);  // prepares them all, before the clock runs
  std::size_t count = 0;
  for (auto _ : state) {
    step(count);
    if (++count % batch == 0) endBatch();
  }
  endBatch();
  state.SetItemsProcessed(state.iterations());
}

void journalAppend(benchmark::State& state) {
  const ScratchFolder folder;
  AuditJournal journal(folder / "journal.jsonl", AuditJournal::defaultActor, true);
  journal.beginBatch();
  inBatches(
      state,
      [&](std::size_t number) {
        journal.append(AuditAction::messageIngested, digest(number),
                       {{"id", std::to_string(number)},
                        {"size", std::to_string(preparedMail(number).size)},
                        {"stored", "1234"},
                        {"attachments", "1"},
                        {"folder_id", "7"},
                        {"class", "business"},
                        {"codec", "deflate+dictionary"},
                        {"origin", "received"}});
      },
      [&] {
        journal.endBatch();
        journal.beginBatch();
      });
}
BENCHMARK(journalAppend);

/// The rows of a message: itself, its header fields, its place in a folder, its attachments.
void catalogInsert(benchmark::State& state) {
  const ScratchFolder folder;
  Catalog catalog(folder / "catalog.sqlite", systemNow);
  const std::int64_t folderID =
      catalog.upsertFolder(catalog.upsertAccount("a", "mbox", {}, {}, {}), "INBOX");
  catalog.beginBatch();
  inBatches(
      state,
      [&](std::size_t number) {
        const PreparedMessage& mail = preparedMail(number);
        const std::int64_t id = catalog.reserveMessage(digest(number));
        MessageInsert insert = insertOf(mail);
        insert.storedSize = static_cast<std::int64_t>(mail.record.payload.size());
        insert.packID = 1;
        insert.packOffset = static_cast<std::int64_t>(number) * 2000;
        insert.recordFlags = 1;
        insert.dictionaryID = 1;
        insert.retentionClass = "business";
        insert.expiresAt = insert.sentAt;
        insert.origin = "received";
        catalog.completeMessage(id, insert);
        catalog.insertHeaders(mail.headers, id);
        catalog.linkMessage(id, folderID, std::nullopt, "\\Seen", insert.sentAt);
        for (const PreparedBlob& blob : mail.extracted) {
          catalog.insertAttachment(id, storedAttachment(blob.ref, std::nullopt));
        }
      },
      [&] {
        catalog.commitBatch();
        catalog.beginBatch();
      });
  catalog.rollbackBatch();
}
BENCHMARK(catalogInsert);

void indexInsert(benchmark::State& state) {
  const ScratchFolder folder;
  Catalog catalog(folder / "catalog.sqlite", systemNow);
  std::int64_t textBytes = 0;
  catalog.beginBatch();
  inBatches(
      state,
      [&](std::size_t number) {
        const IndexedText& text = preparedMail(number).indexed;
        catalog.indexText(static_cast<std::int64_t>(number) + 1, text);
        textBytes += static_cast<std::int64_t>(text.body.size());
      },
      [&] {
        catalog.commitBatch();
        catalog.beginBatch();
      });
  catalog.rollbackBatch();
  state.SetBytesProcessed(textBytes);
}
BENCHMARK(indexInsert);

void packAppend(benchmark::State& state) {
  const ScratchFolder folder;
  PackStore packs(folder / "packs", std::int64_t{1} << 40, false);
  packs.openForWriting(1);
  inBatches(
      state,
      [&](std::size_t number) {
        const CompressedRecord& record = preparedMail(number).record;
        packs.append(record.payload, record.originalLength,
                     RecordFlags::make(record.codec, false, false), 1, 1);
      },
      [&] { packs.flush(); });
  state.SetBytesProcessed(static_cast<std::int64_t>(packs.bytesAppended()));
}
BENCHMARK(packAppend);

}  // namespace
}  // namespace ambervane::bench
