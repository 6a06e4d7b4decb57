// Archives as a whole: taking mail in, and reading it back.

#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <utility>

#include "base/digest.h"
#include "bench/inputs.h"
#include "cli/synthetic_mail.h"
#include "store/message_reader.h"
#include "tests/support/test_archive.h"

namespace ambervane::bench {
namespace {

constexpr std::int64_t kArchiveMails = 1000;

/// How an archive stores.
struct Storing {
  CompressionEffort effort;
  bool hasKeys;  ///< a key for each message
};

RetentionPolicy policyOf(const Storing& storing) {
  return RetentionPolicy(
      {storing.hasKeys ? ComplianceRegime::euGDPR : ComplianceRegime::swissGeBueV});
}

/// `kArchiveMails` messages in a new archive, one archive an iteration. Its making and its end are
/// not counted.
void ingest(benchmark::State& state, Storing storing) {
  std::int64_t bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto archive = std::make_unique<TestArchive>(policyOf(storing), storing.effort);
    SyntheticImporter importer(0, kArchiveMails);
    state.ResumeTiming();
    archive->ingest(importer);
    state.PauseTiming();
    bytes += importer.bytes();
    archive.reset();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(bytes);
  state.SetItemsProcessed(state.iterations() * kArchiveMails);
}

/// Random messages of `archive`, proved by their digests as for showing.
void readRandomMessages(benchmark::State& state, MailArchive& archive) {
  std::vector<MessageRow> rows;
  archive.catalog().database().forEachRow(
      "SELECT * FROM message WHERE erased = 0 AND pack_id IS NOT NULL", {},
      [&rows](const Row& row) {
        rows.emplace_back(row);
        return true;
      });
  if (rows.empty()) {
    state.SkipWithError("the archive holds no message");
    return;
  }
  std::mt19937 random(1);
  std::int64_t bytes = 0;
  for (auto _ : state) {
    const MessageRow& row = rows[random() % rows.size()];
    const Bytes raw = rawMessage(archive, row);
    if (sha256Hex(raw) != row.sha256) state.SkipWithError("a message is not what came in");
    bytes += row.size;
  }
  state.SetBytesProcessed(bytes);
}

void reassembly(benchmark::State& state, Storing storing) {
  TestArchive archive(policyOf(storing), storing.effort);
  SyntheticImporter importer(0, kArchiveMails);
  archive.ingest(importer);
  readRandomMessages(state, *archive);
}

void reassemblyGiven(benchmark::State& state) {
  MailArchive archive(givenArchive(), OpenMode::readOnly);
  readRandomMessages(state, archive);
}
}  // namespace

void registerArchiveCases() {
  static constexpr struct {
    const char* name;
    Storing storing;
  } kStorings[] = {
      {"fast", {CompressionEffort::fast, false}},
      {"balanced", {CompressionEffort::balanced, false}},
      {"balancedWithKeys", {CompressionEffort::balanced, true}},
      {"smallest", {CompressionEffort::smallest, false}},
      {"smallestWithKeys", {CompressionEffort::smallest, true}},
  };
  for (const auto& each : kStorings) {
    const std::string name = each.name;
    benchmark::RegisterBenchmark(("ingest/" + name).c_str(), ingest, each.storing)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark(("reassembly/" + name).c_str(), reassembly, each.storing)
        ->Unit(benchmark::kMicrosecond);
  }
  if (givenArchive().empty()) return;
  benchmark::RegisterBenchmark("reassembly/given", reassemblyGiven)->Unit(benchmark::kMicrosecond);
}

}  // namespace ambervane::bench
