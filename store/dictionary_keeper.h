#ifndef AMBERVANE_STORE_DICTIONARY_KEEPER_H_
#define AMBERVANE_STORE_DICTIONARY_KEEPER_H_

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "base/bytes.h"
#include "store/dictionary_trainer.h"

namespace ambervane {

class Catalog;

/// A compression dictionary and the number that records name it by. No bytes: none is active.
struct Dictionary {
  std::uint16_t id = 0;
  std::shared_ptr<const Bytes> bytes;
  BytesView view() const noexcept { return bytes ? BytesView(*bytes) : BytesView(); }
};

/// The dictionaries of an archive: in the catalog, and as `dict/NNNNN.dict` so that a catalog can
/// be rebuilt. Dictionaries are never changed or removed. Any thread may ask.
class DictionaryKeeper {
 public:
  /// `catalog` must outlive the keeper.
  /// `trainingSample` is the number of messages to learn from, once in the archive's life.
  DictionaryKeeper(Catalog& catalog, std::filesystem::path folder, std::int64_t trainingSample);

  /// Loads the active dictionary; a catalog without one takes those on disk in, or else installs
  /// the built-in one. No file is ever replaced.
  void prepareForWriting();
  /// After a catalog was lost: where one of the dictionaries was trained, nothing is learnt again.
  /// Returns how many dictionaries there are.
  std::int64_t restoreProgress();
  /// Loads the active dictionary and writes nothing.
  void prepareForReading();
  Dictionary active() const;
  /// The bytes of dictionary `id`; null for 0 and for one that is lost.
  std::shared_ptr<const Bytes> dictionary(std::uint16_t id);
  /// Whether samples of stored messages are still wanted.
  bool isLearning() const noexcept { return trainedMessages_ < trainingSample_; }
  /// Takes what `DictionaryTrainer::sampleOf` cut from a message that was stored.
  void noteStored(Bytes sample);
  /// Writes how many messages have been learnt from; to be called in each batch's transaction.
  void saveProgress();
  /// Whether the last sample has come and nothing has been made of them yet.
  bool isTrainingDue() const noexcept { return !isLearning() && trainer_.sampleCount() > 0; }
  /// Builds and activates a dictionary when training is due, outside a batch. A failure is
  /// passed over: the dictionary in use goes on serving.
  void trainIfDue() noexcept;
  /// Stores a dictionary in both places and makes it the active one.
  void store(BytesView bytes, std::int64_t samples);

 private:
  std::uint16_t activeIdentifier() const;
  /// The numbers of the files in `dict`, ascending.
  std::vector<std::uint16_t> identifiersOnDisk() const;
  /// Takes what lies in `dict` into a catalog that has lost it; false when nothing lies there.
  bool adoptFromDisk();
  std::filesystem::path pathOf(std::uint16_t id) const;

  Catalog& catalog_;
  std::filesystem::path folder_;
  mutable std::mutex mutex_;
  Dictionary active_;
  std::map<std::uint16_t, std::shared_ptr<const Bytes>> cache_;
  const std::int64_t trainingSample_;
  DictionaryTrainer trainer_;  ///< this and the counters are the committing thread's
  std::atomic<std::int64_t> trainedMessages_ = 0;  ///< the reader's thread looks at it
  std::int64_t savedMessages_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_DICTIONARY_KEEPER_H_
