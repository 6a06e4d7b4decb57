#include "store/ingest_pipeline.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <utility>

namespace ambervane {
namespace {

/// Thrown through a source to stop it where it takes no answer.
struct StopReading {};

/// Where a message came from: its file, and its number when the file holds several.
std::string itemName(const SourceMessage& message) {
  if (!message.originPath) return message.sourceIdentifier.value_or(message.folderPath);
  const std::string file = std::filesystem::path(*message.originPath).filename().native();
  if (!message.sourceIdentifier || *message.sourceIdentifier == file) return *message.originPath;
  return *message.originPath + ", message " + *message.sourceIdentifier;
}

}  // namespace

std::size_t IngestPipeline::batchMessages() {
  return std::max<std::size_t>(8, ThreadPool::processorCount() * 4);
}

IngestPipeline::IngestPipeline(MessageImporter& importer, std::function<PrepareSettings()> settings,
                               std::function<bool()> shouldCancel)
    : importer_(importer),
      settings_(std::move(settings)),
      shouldCancel_(std::move(shouldCancel)),
      pool_(ThreadPool::processorCount()),
      reader_([this] { read(); }) {}

IngestPipeline::~IngestPipeline() {
  {
    const std::lock_guard lock(mutex_);
    abandoned_ = true;
  }
  changed_.notify_all();
  reader_.join();
}

void IngestPipeline::read() {
  std::exception_ptr failure;
  try {
    importer_.forEachMessage([this](SourceMessage&& message) { return take(std::move(message)); },
                             [this](const std::string& reason) {
                               auto item = std::make_unique<Item>();
                               item->unreadable = reason;
                               if (!mayGoOn() || !add(std::move(item))) throw StopReading();
                             });
  } catch (const StopReading&) {
    // Cancelled, or nobody wants more.
  } catch (...) {
    failure = std::current_exception();
  }
  const std::lock_guard lock(mutex_);
  if (!assembling_.empty()) ready_.push_back(std::move(assembling_));
  failure_ = failure;
  ended_ = true;
  changed_.notify_all();
}

bool IngestPipeline::mayGoOn() {
  const bool cancel = shouldCancel_ && shouldCancel_();
  const std::lock_guard lock(mutex_);
  cancelled_ = cancelled_ || cancel;
  return !cancel && !abandoned_;
}

bool IngestPipeline::take(SourceMessage&& message) {
  if (!mayGoOn()) return false;
  auto item = std::make_unique<Item>();
  item->name = itemName(message);
  item->bytes = message.raw.size();
  item->folderPath = message.folderPath;
  bool full = false;
  {
    const std::lock_guard lock(mutex_);
    full = bytesHeld_ > 0 && bytesHeld_ + item->bytes > kMaximumBytes;
  }
  if (full && !handOver()) return false;
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] {
      return abandoned_ || bytesHeld_ == 0 || bytesHeld_ + item->bytes <= kMaximumBytes;
    });
    if (abandoned_) return false;
    bytesHeld_ += item->bytes;
  }
  // The task owns the bytes until they are prepared; the item's address stays.
  auto source = std::make_shared<SourceMessage>(std::move(message));
  item->done = pool_.submit([source, target = item.get(), settings = settings_()] {
    try {
      target->prepared = prepareOne(std::move(*source), settings);
    } catch (const std::exception& error) {
      // Want of memory for one huge message is no reason to lose those behind it.
      target->unreadable = target->name + ": " + error.what();
    }
  });
  return add(std::move(item));
}

bool IngestPipeline::add(std::unique_ptr<Item> item) {
  assembling_.push_back(std::move(item));
  return assembling_.size() < batchMessages() || handOver();
}

bool IngestPipeline::handOver() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] {
    return abandoned_ || ready_.empty() ||
           (ready_.size() < kMaximumWaiting && bytesHeld_ < kManyWaitBelowBytes);
  });
  if (abandoned_) return false;
  if (!assembling_.empty()) ready_.push_back(std::exchange(assembling_, {}));
  changed_.notify_all();
  return true;
}

bool IngestPipeline::hasPrepared() {
  const std::lock_guard lock(mutex_);
  if (ready_.empty()) return false;
  const auto isDone = [](const std::unique_ptr<Item>& item) {
    return !item->done.valid() ||
           item->done.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  };
  return std::all_of(ready_.front().begin(), ready_.front().end(), isDone);
}

IngestPipeline::Batch IngestPipeline::next() {
  Batch batch;
  {
    std::unique_lock lock(mutex_);
    bytesHeld_ -= std::exchange(bytesHandedOut_, 0);
    changed_.notify_all();
    changed_.wait(lock, [this] { return ended_ || !ready_.empty(); });
    if (ready_.empty()) return batch;
    batch = std::move(ready_.front());
    ready_.pop_front();
    for (const auto& item : batch) bytesHandedOut_ += item->bytes;
    changed_.notify_all();
  }
  // All of them before any failure is let out: a task still running writes into its item.
  for (const auto& item : batch) {
    if (item->done.valid()) item->done.wait();
  }
  for (const auto& item : batch) {
    if (item->done.valid()) item->done.get();
  }
  return batch;
}

}  // namespace ambervane
