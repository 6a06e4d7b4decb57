#ifndef AMBERVANE_STORE_DICTIONARY_KEEPER_H_
#define AMBERVANE_STORE_DICTIONARY_KEEPER_H_

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "base/bytes.h"

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
  DictionaryKeeper(Catalog& catalog, std::filesystem::path folder);

  /// Loads the active dictionary; a catalog without one takes those on disk in, or else installs
  /// the built-in one. No file is ever replaced.
  void prepareForWriting();
  /// Loads the active dictionary and writes nothing.
  void prepareForReading();
  Dictionary active() const;
  /// The bytes of dictionary `id`; null for 0 and for one that is lost.
  std::shared_ptr<const Bytes> dictionary(std::uint16_t id);
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
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_DICTIONARY_KEEPER_H_
