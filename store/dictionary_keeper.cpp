#include "store/dictionary_keeper.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "base/file.h"
#include "base/text.h"
#include "store/catalog.h"
#include "store/seed_dictionary.h"

namespace ambervane {
namespace {

constexpr const char* kActiveKey = "active_dictionary";
constexpr const char* kTrainedKey = "trained_messages";

}  // namespace

DictionaryKeeper::DictionaryKeeper(Catalog& catalog, std::filesystem::path folder,
                                   std::int64_t trainingSample)
    : catalog_(catalog), folder_(std::move(folder)), trainingSample_(trainingSample) {
  trainedMessages_ = parseInteger(catalog_.meta(kTrainedKey).value_or("0")).value_or(0);
  savedMessages_ = trainedMessages_;
}

std::uint16_t DictionaryKeeper::activeIdentifier() const {
  const auto id = parseInteger(catalog_.meta(kActiveKey).value_or("0"));
  return id && *id > 0 && *id <= 0xffff ? static_cast<std::uint16_t>(*id) : std::uint16_t{0};
}

std::filesystem::path DictionaryKeeper::pathOf(std::uint16_t id) const {
  return folder_ / fmt::format("{:05}.dict", id);
}

void DictionaryKeeper::prepareForWriting() {
  createFolders(folder_);
  if (activeIdentifier() == 0 && !adoptFromDisk()) {
    store(seedDictionary(), 0);
  } else {
    prepareForReading();
  }
}

std::int64_t DictionaryKeeper::restoreProgress() {
  const auto seed = seedDictionary();
  for (const std::uint16_t id : identifiersOnDisk()) {
    const auto bytes = dictionary(id);
    if (!bytes || BytesView(*bytes) == BytesView(seed)) continue;
    trainedMessages_ = std::max<std::int64_t>(trainedMessages_, trainingSample_);
  }
  saveProgress();
  return catalog_.dictionaryCount();
}

std::vector<std::uint16_t> DictionaryKeeper::identifiersOnDisk() const {
  std::vector<std::uint16_t> identifiers;
  std::error_code error;
  for (std::filesystem::directory_iterator it(folder_, error), end; !error && it != end;
       it.increment(error)) {
    const auto id = parseInteger(it->path().stem().native());
    if (!id || *id < 1 || *id > 0xffff) continue;
    if (it->path() == pathOf(static_cast<std::uint16_t>(*id))) {
      identifiers.push_back(static_cast<std::uint16_t>(*id));
    }
  }
  std::sort(identifiers.begin(), identifiers.end());
  return identifiers;
}

bool DictionaryKeeper::adoptFromDisk() {
  const auto identifiers = identifiersOnDisk();
  std::uint16_t last = 0;
  catalog_.atomically([&] {
    for (const std::uint16_t id : identifiers) {
      // What needs one that cannot be read is lost, and the rest is not.
      const auto bytes = readFileIfPossible(pathOf(id));
      if (!bytes) continue;
      catalog_.restoreDictionary(id, *bytes);
      last = id;
    }
    if (last > 0) catalog_.setMeta(kActiveKey, std::to_string(last));
  });
  if (last == 0) return false;
  prepareForReading();
  return true;
}

void DictionaryKeeper::prepareForReading() {
  const std::uint16_t id = activeIdentifier();
  if (id == 0) return;
  const auto bytes = dictionary(id);
  const std::lock_guard lock(mutex_);
  active_ = {id, bytes};
}

Dictionary DictionaryKeeper::active() const {
  const std::lock_guard lock(mutex_);
  return active_;
}

std::shared_ptr<const Bytes> DictionaryKeeper::dictionary(std::uint16_t id) {
  if (id == 0) return nullptr;
  {
    const std::lock_guard lock(mutex_);
    if (const auto known = cache_.find(id); known != cache_.end()) return known->second;
  }
  auto bytes = catalog_.dictionary(id);
  if (!bytes) bytes = readFileIfPossible(pathOf(id));
  if (!bytes) return nullptr;
  const std::lock_guard lock(mutex_);
  return cache_[id] = std::make_shared<const Bytes>(*std::move(bytes));
}

void DictionaryKeeper::noteStored(Bytes sample) {
  if (!isLearning()) return;
  trainer_.addSample(std::move(sample));
  ++trainedMessages_;
}

void DictionaryKeeper::saveProgress() {
  if (trainedMessages_ == savedMessages_) return;
  catalog_.setMeta(kTrainedKey, std::to_string(trainedMessages_));
  savedMessages_ = trainedMessages_;
}

void DictionaryKeeper::trainIfDue() noexcept {
  if (!isTrainingDue()) return;
  try {
    const DictionaryTrainer trainer = std::exchange(trainer_, DictionaryTrainer());
    const Bytes built = trainer.build();
    if (!built.empty()) store(built, static_cast<std::int64_t>(trainer.sampleCount()));
  } catch (const std::exception&) {
    // Only a matter of size.
  }
}

void DictionaryKeeper::store(BytesView bytes, std::int64_t samples) {
  std::int64_t id = 0;
  catalog_.atomically([&] {
    const auto onDisk = identifiersOnDisk();
    id = catalog_.storeDictionary(bytes, samples, onDisk.empty() ? 0 : onDisk.back());
    writeFileAtomically(pathOf(static_cast<std::uint16_t>(id)), bytes);
    catalog_.setMeta(kActiveKey, std::to_string(id));
  });
  const std::lock_guard lock(mutex_);
  active_ = {static_cast<std::uint16_t>(id), std::make_shared<const Bytes>(bytes)};
  cache_[active_.id] = active_.bytes;
}

}  // namespace ambervane
