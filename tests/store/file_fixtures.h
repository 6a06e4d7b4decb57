#ifndef AMBERVANE_TESTS_STORE_FILE_FIXTURES_H_
#define AMBERVANE_TESTS_STORE_FILE_FIXTURES_H_

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <string>

#include "base/file.h"

namespace ambervane {

/// A new folder that is removed with all it holds.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string path = (std::filesystem::temp_directory_path() / "ambervane-XXXXXX").native();
    EXPECT_NE(::mkdtemp(path.data()), nullptr);
    path_ = path;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
};

/// While it lives the disk takes `room` bytes more, half a write included, and then is full.
class FullDisk {
 public:
  explicit FullDisk(std::size_t room) {
    setFileStepHook([room](const FileStep& step) mutable {
      const std::size_t taken = std::min(room, step.bytes);
      room -= taken;
      return taken;
    });
  }
  ~FullDisk() { setFileStepHook({}); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;
};

/// While it lives every flush to the disk fails.
class FailingSync {
 public:
  FailingSync() {
    setFileStepHook([](const FileStep& step) {
      if (step.kind == FileStep::Kind::sync) {
        throw FileError(FileError::Action::sync, step.path, EIO);
      }
      return step.bytes;
    });
  }
  ~FailingSync() { setFileStepHook({}); }
  FailingSync(const FailingSync&) = delete;
  FailingSync& operator=(const FailingSync&) = delete;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_STORE_FILE_FIXTURES_H_
