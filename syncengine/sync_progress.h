#ifndef AMBERVANE_SYNCENGINE_SYNC_PROGRESS_H_
#define AMBERVANE_SYNCENGINE_SYNC_PROGRESS_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "store/throughput_meter.h"

namespace ambervane {

/// How far a run has come, and in the end what it did.
struct SyncProgress {
  std::string folder;
  std::int64_t foldersDone = 0;
  std::int64_t foldersTotal = 0;
  std::int64_t messagesInFolder = 0;
  std::int64_t messagesTotalInFolder = 0;
  std::int64_t stored = 0;
  std::int64_t duplicates = 0;
  std::int64_t failed = 0;    ///< messages, and folders that could not be collected
  std::int64_t missing = 0;   ///< messages the server listed and did not hand over
  std::int64_t bytesIn = 0;   ///< raw bytes of what was taken, duplicates included
  std::int64_t bytesOut = 0;  ///< what the packs have grown by
  std::string note;           ///< the last line worth showing
  std::int64_t departed = 0;
  std::int64_t returned = 0;
  ThroughputMeter throughput;
  std::vector<std::string> remarks;   ///< the notes that somebody should read afterwards
  std::vector<std::string> failures;  ///< the first messages that failed
  bool cancelled = false;
};

/// Called after each message and each note, on the thread of the run.
using SyncProgressHandler = std::function<void(const SyncProgress&)>;

}  // namespace ambervane

#endif  // AMBERVANE_SYNCENGINE_SYNC_PROGRESS_H_
