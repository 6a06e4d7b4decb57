#ifndef AMBERVANE_TESTS_SUPPORT_FILE_FAULTS_H_
#define AMBERVANE_TESTS_SUPPORT_FILE_FAULTS_H_

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <utility>

#include "base/file.h"

namespace ambervane {

/// Holds a hook on every step that writes, for the length of a scope.
class FileSteps {
 public:
  explicit FileSteps(std::function<std::size_t(const FileStep&)> hook) {
    setFileStepHook(std::move(hook));
  }
  ~FileSteps() { setFileStepHook({}); }
  FileSteps(const FileSteps&) = delete;
  FileSteps& operator=(const FileSteps&) = delete;
};

/// While it lives the disk takes `room` bytes more, half a write included, and then is full.
class FullDisk : public FileSteps {
 public:
  explicit FullDisk(std::size_t room)
      : FileSteps([room](const FileStep& step) mutable {
          const std::size_t taken = std::min(room, step.bytes);
          room -= taken;
          return taken;
        }) {}
};

/// While it lives every flush to the disk fails.
class FailingSync : public FileSteps {
 public:
  FailingSync()
      : FileSteps([](const FileStep& step) -> std::size_t {
          if (step.kind == FileStep::Kind::sync) {
            throw FileError(FileError::Action::sync, step.path, EIO);
          }
          return step.bytes;
        }) {}
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_FILE_FAULTS_H_
