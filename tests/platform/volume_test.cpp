#include "platform/volume.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

namespace ambervane {
namespace {

struct Mount {
  std::string type;
  bool readOnly;
};

/// What the kernel says is mounted where, by mount point; of several the topmost.
std::map<std::string, Mount> mounts() {
  std::map<std::string, Mount> found;
  std::ifstream file("/proc/self/mounts");
  for (std::string line; std::getline(file, line);) {
    std::string device, point, type, options;
    std::istringstream(line) >> device >> point >> type >> options;
    found[point] = {type, options == "ro" || options.starts_with("ro,")};
  }
  return found;
}

TEST(Volume, agreesWithTheMountTable) {
  const auto table = mounts();
  for (const char* point : {"/", "/proc", "/sys", "/dev/shm"}) {
    SCOPED_TRACE(point);
    const auto mount = table.find(point);
    if (mount == table.end()) continue;
    EXPECT_EQ(volumeIsReadOnly(point), mount->second.readOnly);
    // The root may be of any type, and some go by more names than one.
    if (std::string_view(point) != "/") {
      EXPECT_EQ(fileSystemName(point), mount->second.type);
      EXPECT_FALSE(isNetworkVolume(point));
    }
  }
}

TEST(Volume, freeSpaceIsThatOfTheSystem) {
  const auto space = std::filesystem::space(std::filesystem::temp_directory_path());
  const auto free = freeBytes(std::filesystem::temp_directory_path());
  ASSERT_TRUE(free);
  // Others write meanwhile.
  EXPECT_NEAR(static_cast<double>(*free), static_cast<double>(space.available), 1e9);
}

TEST(Volume, missingPath) {
  const char* const kNowhere = "/nowhere/at/all";
  EXPECT_FALSE(volumeIsReadOnly(kNowhere));
  EXPECT_EQ(freeBytes(kNowhere), std::nullopt);
  EXPECT_EQ(fileSystemName(kNowhere), "unknown");
  EXPECT_FALSE(isNetworkVolume(kNowhere));
}

}  // namespace
}  // namespace ambervane
