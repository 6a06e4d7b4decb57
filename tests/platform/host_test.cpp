#include "platform/host.h"

#include <gtest/gtest.h>

#include "base/text.h"

namespace ambervane {
namespace {

TEST(Host, namesThisProcess) {
  EXPECT_EQ(processName(), "platform_tests");
  for (const std::string& name : {localHostName(), loginUserName()}) {
    EXPECT_FALSE(name.empty());
    EXPECT_TRUE(isValidUtf8(name));
  }
}

}  // namespace
}  // namespace ambervane
