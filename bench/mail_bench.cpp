// Taking messages apart: what `prepareOne` does, step by step and as a whole. One iteration of a
// case over messages is all of `mails()`.

#include <benchmark/benchmark.h>

#include <utility>

#include "base/aead.h"
#include "base/digest.h"
#include "bench/inputs.h"
#include "mailcore/parsed_message.h"
#include "store/base64_recipe.h"
#include "store/compressibility.h"
#include "store/header_index.h"
#include "store/seed_dictionary.h"

namespace ambervane::bench {
namespace {

void countBytes(benchmark::State& state, std::size_t bytesAnIteration) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytesAnIteration));
}

/// Runs `work` on every message; speed is told in messages and bytes a second.
template <typename Work>
void overMails(benchmark::State& state, Work work) {
  const std::vector<Bytes>& all = mails();
  for (auto _ : state) {
    for (const Bytes& raw : all) work(raw);
  }
  countBytes(state, totalBytes(all));
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(all.size()));
}

void hash(benchmark::State& state) {
  overMails(state, [](const Bytes& raw) { benchmark::DoNotOptimize(sha256Hex(raw)); });
}
BENCHMARK(hash)->Unit(benchmark::kMillisecond);

void parse(benchmark::State& state) {
  overMails(state, [](const Bytes& raw) {
    const ParsedMessage parsed(raw);
    benchmark::DoNotOptimize(parsed.hasAttachments());
  });
}
BENCHMARK(parse)->Unit(benchmark::kMillisecond);

void parseHeaders(benchmark::State& state) {
  overMails(state, [](const Bytes& raw) {
    const ParsedMessage parsed(raw);
    benchmark::DoNotOptimize(parsed.subject());
    benchmark::DoNotOptimize(parsed.from());
    benchmark::DoNotOptimize(parsed.to());
    benchmark::DoNotOptimize(parsed.date());
    benchmark::DoNotOptimize(indexedHeaders(parsed.headers()));
  });
}
BENCHMARK(parseHeaders)->Unit(benchmark::kMillisecond);

void parseTexts(benchmark::State& state) {
  overMails(state, [](const Bytes& raw) { benchmark::DoNotOptimize(ParsedMessage(raw).texts()); });
}
BENCHMARK(parseTexts)->Unit(benchmark::kMillisecond);

/// The digests of messages and of their attachments, encoded and decoded, with the decoding.
void hashAndSplit(benchmark::State& state) {
  overMails(state, [](const Bytes& raw) {
    benchmark::DoNotOptimize(sha256Hex(raw));
    benchmark::DoNotOptimize(ParsedMessage(raw).attachments());
  });
}
BENCHMARK(hashAndSplit)->Unit(benchmark::kMillisecond);

void prepare(benchmark::State& state, CompressionEffort effort) {
  PrepareSettings settings;
  settings.dictionary = {1, std::make_shared<const Bytes>(seedDictionary())};
  settings.effort = effort;
  settings.compressesRecords = effort != CompressionEffort::smallest;  // those wait for a block
  overMails(state, [&settings](const Bytes& raw) {
    SourceMessage source;
    source.raw = raw;
    benchmark::DoNotOptimize(prepareOne(std::move(source), settings));
  });
}
BENCHMARK_CAPTURE(prepare, fast, CompressionEffort::fast)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(prepare, balanced, CompressionEffort::balanced)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(prepare, smallest, CompressionEffort::smallest)->Unit(benchmark::kMillisecond);

/// Runs `work` once an iteration over `bytes` bytes.
template <typename Work>
void overBytes(benchmark::State& state, std::size_t bytes, Work work) {
  for (auto _ : state) benchmark::DoNotOptimize(work());
  countBytes(state, bytes);
}

void base64Decode(benchmark::State& state) {
  overBytes(state, encodedFile().size(),
            [] { return ContentTransferDecoder::decodeBase64(encodedFile()); });
}
BENCHMARK(base64Decode);

void base64RecipeAnalyze(benchmark::State& state) {
  overBytes(state, encodedFile().size(),
            [] { return Base64Recipe::analyze(encodedFile(), decodedFile()); });
}
BENCHMARK(base64RecipeAnalyze);

void base64RecipeEncode(benchmark::State& state) {
  const Base64Recipe recipe = Base64Recipe::analyze(encodedFile(), decodedFile()).value();
  overBytes(state, encodedFile().size(), [&recipe] { return recipe.encode(decodedFile()); });
}
BENCHMARK(base64RecipeEncode);

void incompressibility(benchmark::State& state) {
  overBytes(state, decodedFile().size(), [] { return looksIncompressible(decodedFile()); });
}
BENCHMARK(incompressibility);

void aesGcmSealing(benchmark::State& state) {
  const SymmetricKey key = SymmetricKey::random();
  const BytesView plain =
      BytesView(decodedFile()).substr(0, static_cast<std::size_t>(state.range()));
  overBytes(state, plain.size(), [&] { return aesGcmSeal(plain, key.raw(), "digest"); });
}
BENCHMARK(aesGcmSealing)->Arg(1500)->Arg(300000);

void aesGcmOpening(benchmark::State& state) {
  const SymmetricKey key = SymmetricKey::random();
  const BytesView plain =
      BytesView(decodedFile()).substr(0, static_cast<std::size_t>(state.range()));
  const Bytes sealed = aesGcmSeal(plain, key.raw(), "digest");
  overBytes(state, plain.size(), [&] { return aesGcmOpen(sealed, key.raw(), "digest"); });
}
BENCHMARK(aesGcmOpening)->Arg(1500)->Arg(300000);

}  // namespace
}  // namespace ambervane::bench
