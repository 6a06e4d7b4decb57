#ifndef AMBERVANE_TESTS_SUPPORT_ARCHIVE_FILES_H_
#define AMBERVANE_TESTS_SUPPORT_ARCHIVE_FILES_H_

#include <filesystem>
#include <string>
#include <vector>

#include "base/file.h"

namespace ambervane {

/// Where any of the texts stands in an archive's files, as "file: text"; packs and the journal, of
/// which nothing is ever taken out, are not looked at.
inline std::vector<std::string> textsInFiles(const std::filesystem::path& archive,
                                             const std::vector<Bytes>& texts) {
  std::vector<std::string> found;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(archive)) {
    const auto& path = entry.path();
    if (!entry.is_regular_file() || path.extension() == ".pack") continue;
    if (path.filename() == "journal.jsonl") continue;
    const Bytes bytes = readFile(path);
    for (const Bytes& text : texts) {
      if (bytes.find(text) == Bytes::npos) continue;
      found.push_back(path.lexically_relative(archive).native() + ": " + text);
    }
  }
  return found;
}

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_ARCHIVE_FILES_H_
