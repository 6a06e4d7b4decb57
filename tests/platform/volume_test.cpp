#include "platform/volume.h"

#include <gtest/gtest.h>

namespace ambervane {
namespace {

TEST(Volume, proc) {
  EXPECT_EQ(fileSystemName("/proc"), "proc");
  EXPECT_FALSE(isNetworkVolume("/proc"));
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
