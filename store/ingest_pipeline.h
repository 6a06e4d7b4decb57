#ifndef AMBERVANE_STORE_INGEST_PIPELINE_H_
#define AMBERVANE_STORE_INGEST_PIPELINE_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/thread_pool.h"
#include "mailformats/message_importer.h"
#include "store/prepared_message.h"

namespace ambervane {

/// Reads a source on a thread of its own and prepares its messages on all processors while the
/// caller commits those before them. Batches come out in the source's order. What is read, prepared
/// and not yet committed is bounded in bytes and in batches. Several batches may wait, so that the
/// processors stay busy while the caller waits for a disk, and the caller can then take all that
/// are ready under one flush.
class IngestPipeline {
 public:
  /// Messages in a batch, and raw bytes in all batches together.
  static std::size_t batchMessages();
  static constexpr std::size_t kMaximumBytes = 67108864;
  /// Batches that wait for the caller, as long as all that is held is small; else one.
  static constexpr std::size_t kMaximumWaiting = 32;
  static constexpr std::size_t kManyWaitBelowBytes = 16777216;

  /// One message, or one item the source could not read.
  struct Item {
    std::string name;        ///< for people
    std::string identifier;  ///< what the source calls it, such as a UID; may be empty
    std::size_t bytes = 0;
    std::optional<std::string> unreadable;    ///< why the item could not be read or prepared
    std::optional<PreparedMessage> prepared;  ///< absent for an empty message
    std::string folderPath;
    std::future<void> done;  ///< `prepared` may be looked at after it
  };
  struct Batch {
    std::vector<std::unique_ptr<Item>> items;
    /// Numbers of messages that the source lists and did not deliver. They are to be on record
    /// before the first of `items` is.
    std::vector<std::int64_t> missing;
  };
  /// Reads a source from its beginning to its end by calls of `takeBatch`.
  using Reader = std::function<void(IngestPipeline&)>;

  /// Starts reading. `importer` must outlive the pipeline; `settings` is asked anew for
  /// each message and `shouldCancel` before each, both on the reader's thread.
  IngestPipeline(MessageImporter& importer, std::function<PrepareSettings()> settings,
                 std::function<bool()> shouldCancel);
  /// The same for a source that makes the batches itself; `reader` runs on the reader's thread. No
  /// more than two of its batches are held: the one being committed and the one behind it.
  IngestPipeline(Reader reader, std::function<PrepareSettings()> settings,
                 std::function<bool()> shouldCancel);
  /// Stops the source and waits for what is under way.
  ~IngestPipeline();
  IngestPipeline(const IngestPipeline&) = delete;
  IngestPipeline& operator=(const IngestPipeline&) = delete;

  /// Called by a `Reader`: takes one batch, in the order in which it is to be committed, and waits
  /// until the batch before it is done with. False when nobody wants more. A batch that holds more
  /// than `kMaximumBytes` comes out in pieces, `missing` with the first.
  bool takeBatch(std::vector<SourceMessage>&& messages, std::vector<std::int64_t> missing);

  /// The next batch; absent when the source has ended. The batch before it must be done with.
  std::optional<Batch> next();
  /// Waits until `next` would return a batch without waiting; false when it would not by
  /// `deadline`, or the source has ended. The batch before must be done with.
  bool waitForPrepared(std::chrono::steady_clock::time_point deadline);
  /// What ended the source before its end, once `next` has returned nothing.
  std::exception_ptr failure() const { return failure_; }
  bool cancelled() const noexcept { return cancelled_; }

 private:
  void read(const Reader& reader);
  void readFrom(MessageImporter& importer);
  /// False when cancelled or when nobody wants more.
  bool mayGoOn();
  /// Adds to the batch in hand, which is handed over first when the bytes held are many.
  bool take(SourceMessage&& message);
  /// Counts the bytes of the batch the caller had no more; the mutex must be held.
  void releaseHandedOut();
  /// Hands the batch over and waits for room; false when nobody wants more.
  bool handOver();

  const std::function<PrepareSettings()> settings_;
  const std::function<bool()> shouldCancel_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Batch> ready_;
  std::size_t bytesHeld_ = 0;       ///< raw bytes of messages read and not yet committed
  std::size_t bytesHandedOut_ = 0;  ///< those of the batch the caller has
  bool ended_ = false;
  bool abandoned_ = false;
  bool cancelled_ = false;
  std::exception_ptr failure_;

  Batch assembling_;  ///< the reader's own
  ThreadPool pool_;
  std::thread reader_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_INGEST_PIPELINE_H_
