#ifndef AMBERVANE_STORE_DICTIONARY_TRAINER_H_
#define AMBERVANE_STORE_DICTIONARY_TRAINER_H_

#include <cstddef>
#include <vector>

#include "base/bytes.h"
#include "store/seed_dictionary.h"

namespace ambervane {

/// Learns from an archive's first messages what its mail repeats: header lines and the beginnings
/// of bodies. Keeps samples of at most twice 24 times the dictionary's size. A value: move it away
/// to build outside a lock.
class DictionaryTrainer {
 public:
  /// Of a body, only this many bytes become part of the sample.
  static constexpr std::size_t kBodyBytes = 512;
  /// A sample is cut to this, so that a message that is all header cannot fill the memory.
  static constexpr std::size_t kMaxSampleBytes = 24 * kDictionaryBytes;

  explicit DictionaryTrainer(std::size_t targetSize = kDictionaryBytes) : targetSize_(targetSize) {}

  /// What is kept of a message: its header, an empty line, and the beginning of its body.
  static Bytes sampleOf(BytesView message);

  /// Whether enough has been gathered; samples added from here on are passed over.
  bool isFull() const noexcept { return totalBytes_ >= 24 * targetSize_; }
  void add(BytesView message);
  /// As `add`, for what `sampleOf` returned.
  void addSample(Bytes sample);
  std::size_t sampleCount() const noexcept { return samples_.size(); }

  /// A dictionary of at most `targetSize` bytes: lines found in two messages or more, those that
  /// save most at the end. Empty when there is none. The same samples give the same bytes, in
  /// whatever order they came.
  Bytes build() const;

 private:
  std::size_t targetSize_;
  std::size_t totalBytes_ = 0;
  std::vector<Bytes> samples_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_DICTIONARY_TRAINER_H_
