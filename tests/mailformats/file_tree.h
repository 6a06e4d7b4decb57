#ifndef AMBERVANE_TESTS_MAILFORMATS_FILE_TREE_H_
#define AMBERVANE_TESTS_MAILFORMATS_FILE_TREE_H_

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mailformats/message_importer.h"

namespace ambervane {

/// Files in a temporary folder of their own, removed at the end.
class FileTree {
 public:
  /// Paths with their content; one that ends in "/" is a folder.
  using Files = std::vector<std::pair<std::string, std::string>>;

  FileTree(std::initializer_list<Files::value_type> files) : FileTree(Files(files)) {}
  explicit FileTree(const Files& files = {}) {
    std::string pattern = (std::filesystem::temp_directory_path() / "mailformats-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    root_ = pattern;
    for (const auto& [path, content] : files) add(path, content);
  }
  ~FileTree() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  FileTree(const FileTree&) = delete;
  FileTree& operator=(const FileTree&) = delete;

  std::filesystem::path add(const std::string& path, std::string_view content) const {
    std::filesystem::path whole = root_ / path;
    if (path.ends_with('/')) {
      std::filesystem::create_directories(whole);
      return whole;
    }
    std::filesystem::create_directories(whole.parent_path());
    std::ofstream(whole, std::ios::binary) << content;
    return whole;
  }
  const std::filesystem::path& root() const { return root_; }
  std::filesystem::path operator/(const std::string& path) const { return root_ / path; }

 private:
  std::filesystem::path root_;
};

/// Takes the rights of the superuser away for a while, to whom nothing is refused.
class WithoutPrivilege {
 public:
  WithoutPrivilege() : user_(::geteuid()) {
    if (user_ == 0) {
      EXPECT_EQ(::seteuid(65534), 0);
    }
  }
  ~WithoutPrivilege() { EXPECT_EQ(::seteuid(user_), 0); }
  WithoutPrivilege(const WithoutPrivilege&) = delete;
  WithoutPrivilege& operator=(const WithoutPrivilege&) = delete;

 private:
  uid_t user_;
};

/// What an importer handed out.
struct Harvest {
  std::vector<SourceMessage> messages;
  std::vector<std::string> unreadable;

  /// "folder|raw" of each message.
  std::vector<std::string> texts() const {
    std::vector<std::string> list;
    for (const SourceMessage& message : messages) {
      list.push_back(message.folderPath + "|" + message.raw);
    }
    return list;
  }
};

inline Harvest harvest(MessageImporter& importer) {
  Harvest harvest;
  importer.forEachMessage(
      [&](SourceMessage&& message) {
        harvest.messages.push_back(std::move(message));
        return true;
      },
      [&](const std::string& item) { harvest.unreadable.push_back(item); });
  return harvest;
}

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_MAILFORMATS_FILE_TREE_H_
