#ifndef AMBERVANE_TESTS_EVIDENCE_SCRATCH_FOLDER_H_
#define AMBERVANE_TESTS_EVIDENCE_SCRATCH_FOLDER_H_

#include <stdlib.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "base/file.h"
#include "platform/immutable_flag.h"

namespace ambervane {

/// A folder of one test, removed at its end, files with the immutable flag included.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = std::filesystem::temp_directory_path() / "ambervane-evidence-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = name;
  }
  ~ScratchFolder() {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path_)) {
      clearImmutable(entry.path());
    }
    std::filesystem::remove_all(path_);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

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

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_EVIDENCE_SCRATCH_FOLDER_H_
