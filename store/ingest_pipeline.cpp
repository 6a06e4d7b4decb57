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

bool isEmpty(const IngestPipeline::Batch& batch) {
  return batch.items.empty() && batch.missing.empty();
}

}  // namespace

std::size_t IngestPipeline::batchMessages() {
  return std::max<std::size_t>(8, ThreadPool::processorCount() * 4);
}

IngestPipeline::IngestPipeline(MessageImporter& importer, std::function<PrepareSettings()> settings,
                               std::function<bool()> shouldCancel)
    : IngestPipeline([&importer](IngestPipeline& pipeline) { pipeline.readFrom(importer); },
                     std::move(settings), std::move(shouldCancel)) {}

IngestPipeline::IngestPipeline(Reader reader, std::function<PrepareSettings()> settings,
                               std::function<bool()> shouldCancel)
    : settings_(std::move(settings)),
      shouldCancel_(std::move(shouldCancel)),
      pool_(ThreadPool::processorCount()),
      reader_([this, reader = std::move(reader)] { read(reader); }) {}

IngestPipeline::~IngestPipeline() {
  {
    const std::lock_guard lock(mutex_);
    abandoned_ = true;
  }
  changed_.notify_all();
  reader_.join();
}

void IngestPipeline::read(const Reader& reader) {
  std::exception_ptr failure;
  try {
    reader(*this);
  } catch (const StopReading&) {
    // Cancelled, or nobody wants more.
  } catch (...) {
    failure = std::current_exception();
  }
  const std::lock_guard lock(mutex_);
  if (!isEmpty(assembling_)) ready_.push_back(std::move(assembling_));
  failure_ = failure;
  ended_ = true;
  changed_.notify_all();
}

void IngestPipeline::readFrom(MessageImporter& importer) {
  const auto roomIsLeft = [this] { return assembling_.items.size() < batchMessages(); };
  importer.forEachMessage(
      [&](SourceMessage&& message) {
        return take(std::move(message)) && (roomIsLeft() || handOver());
      },
      [&](const std::string& reason) {
        auto item = std::make_unique<Item>();
        item->unreadable = reason;
        if (!mayGoOn()) throw StopReading();
        assembling_.items.push_back(std::move(item));
        if (!roomIsLeft() && !handOver()) throw StopReading();
      });
}

bool IngestPipeline::takeBatch(std::vector<SourceMessage>&& messages,
                               std::vector<std::int64_t> missing) {
  assembling_.missing = std::move(missing);
  for (SourceMessage& message : messages) {
    if (!take(std::move(message))) return false;
  }
  if (!handOver()) return false;
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return abandoned_ || ready_.empty(); });
  return !abandoned_;
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
  item->identifier = message.sourceIdentifier.value_or("");
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
  assembling_.items.push_back(std::move(item));
  return true;
}

bool IngestPipeline::handOver() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] {
    return abandoned_ || ready_.empty() ||
           (ready_.size() < kMaximumWaiting && bytesHeld_ < kManyWaitBelowBytes);
  });
  if (abandoned_) return false;
  if (!isEmpty(assembling_)) ready_.push_back(std::exchange(assembling_, {}));
  changed_.notify_all();
  return true;
}

void IngestPipeline::releaseHandedOut() {
  bytesHeld_ -= std::exchange(bytesHandedOut_, 0);
  changed_.notify_all();
}

bool IngestPipeline::waitForPrepared(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  releaseHandedOut();
  changed_.wait_until(lock, deadline, [this] { return ended_ || !ready_.empty(); });
  if (ready_.empty()) return false;
  // Only the caller's own thread takes batches away, so this one stays where it is.
  const auto& items = ready_.front().items;
  lock.unlock();
  return std::all_of(items.begin(), items.end(), [&](const std::unique_ptr<Item>& item) {
    return !item->done.valid() || item->done.wait_until(deadline) == std::future_status::ready;
  });
}

std::optional<IngestPipeline::Batch> IngestPipeline::next() {
  std::optional<Batch> batch;
  {
    std::unique_lock lock(mutex_);
    releaseHandedOut();
    changed_.wait(lock, [this] { return ended_ || !ready_.empty(); });
    if (ready_.empty()) return batch;
    batch = std::move(ready_.front());
    ready_.pop_front();
    for (const auto& item : batch->items) bytesHandedOut_ += item->bytes;
    changed_.notify_all();
  }
  // All of them before any failure is let out: a task still running writes into its item.
  for (const auto& item : batch->items) {
    if (item->done.valid()) item->done.wait();
  }
  for (const auto& item : batch->items) {
    if (item->done.valid()) item->done.get();
  }
  return batch;
}

}  // namespace ambervane
