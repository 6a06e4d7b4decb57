// The codecs, each by itself on what archives hold, and the choice among them at each effort. The
// counter "left" is the share of the bytes that compression leaves. What cannot be compressed is
// not decoded.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <functional>
#include <optional>

#include "bench/inputs.h"
#include "store/brotli_codec.h"
#include "store/codec.h"
#include "store/compressibility.h"
#include "store/deflate.h"
#include "store/lzfse.h"
#include "store/seed_dictionary.h"
#include "store/xz_codec.h"

namespace ambervane::bench {
namespace {

struct CodecUnderTest {
  Codec codec;
  std::optional<Bytes> (*encode)(BytesView data);
};

constexpr CodecUnderTest kCodecs[] = {
    {Codec::deflateDictionary,
     [](BytesView data) { return Deflate::compress(data, seedDictionary()); }},
    {Codec::lzfse, lzfseEncode},
    {Codec::lzma, xzEncode},
    {Codec::brotli, brotliEncode},
};

void countSample(benchmark::State& state, const Sample& sample, std::size_t left) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(sample.bytes.size()));
  state.counters["left"] = static_cast<double>(left) / static_cast<double>(sample.bytes.size());
}

void encode(benchmark::State& state, const CodecUnderTest& codec, const Sample& sample) {
  std::size_t left = sample.bytes.size();
  for (auto _ : state) {
    const auto encoded = codec.encode(sample.bytes);
    if (encoded) left = encoded->size();
    benchmark::DoNotOptimize(encoded);
  }
  countSample(state, sample, left);
}

void decode(benchmark::State& state, const CodecUnderTest& codec, const Sample& sample) {
  const Bytes encoded = codec.encode(sample.bytes).value_or(Bytes());
  for (auto _ : state) {
    const auto plain =
        Compressor::decompress(encoded, codec.codec, seedDictionary(), sample.bytes.size());
    if (!plain) state.SkipWithError("the codec does not read what it wrote");
    benchmark::DoNotOptimize(plain);
  }
  countSample(state, sample, encoded.size());
}

void choose(benchmark::State& state, CompressionEffort effort, const Sample& sample) {
  std::size_t left = 0;
  for (auto _ : state) {
    const CompressedRecord record = Compressor::compress(sample.bytes, seedDictionary(), effort);
    left = record.payload.size();
    benchmark::DoNotOptimize(record);
  }
  countSample(state, sample, left);
}

}  // namespace

void registerCodecCases() {
  for (const Sample& sample : samples()) {
    for (const CodecUnderTest& codec : kCodecs) {
      const std::string name = fmt::format("{}/{}", label(codec.codec), sample.name);
      benchmark::RegisterBenchmark(("encode/" + name).c_str(), encode, std::ref(codec),
                                   std::ref(sample));
      if (looksIncompressible(sample.bytes)) continue;
      benchmark::RegisterBenchmark(("decode/" + name).c_str(), decode, std::ref(codec),
                                   std::ref(sample));
    }
    for (const auto effort :
         {CompressionEffort::fast, CompressionEffort::balanced, CompressionEffort::smallest}) {
      benchmark::RegisterBenchmark(
          fmt::format("compress/{}/{}", rawValue(effort), sample.name).c_str(), choose, effort,
          std::ref(sample));
    }
  }
}

}  // namespace ambervane::bench
