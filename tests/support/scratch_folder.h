#ifndef AMBERVANE_TESTS_SUPPORT_SCRATCH_FOLDER_H_
#define AMBERVANE_TESTS_SUPPORT_SCRATCH_FOLDER_H_

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "platform/immutable_flag.h"

namespace ambervane {

/// A folder of one test, removed at its end, files with the immutable flag included.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = std::filesystem::temp_directory_path() / "ambervane-test-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = name;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path_, ignored)) {
      if (entry.is_regular_file(ignored)) clearImmutable(entry.path());
    }
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::filesystem::path& path() const noexcept { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_SCRATCH_FOLDER_H_
