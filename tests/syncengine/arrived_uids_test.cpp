#include "syncengine/arrived_uids.h"

#include <gtest/gtest.h>

namespace ambervane {
namespace {

using UIDs = std::vector<std::int64_t>;

TEST(ArrivedUIDs, namesWhatIsMissingOnceABatchIsAnswered) {
  ArrivedUIDs uids({10, 20, 30, 40, 50, 60, 70}, 3);
  EXPECT_TRUE(uids.missingSoFar().empty());
  EXPECT_TRUE(uids.arrive(10));
  EXPECT_TRUE(uids.arrive(30));
  EXPECT_EQ(uids.missingSoFar(), UIDs{20});
  EXPECT_TRUE(uids.missingSoFar().empty());  // once

  // A batch that brought nothing is passed over when the one behind it arrives.
  EXPECT_TRUE(uids.arrive(70));
  EXPECT_EQ(uids.missingSoFar(), (UIDs{40, 50, 60}));
  EXPECT_TRUE(uids.arrive(50));  // late
  EXPECT_TRUE(uids.missingAtEnd().empty());

  for (const std::int64_t stranger : {5, 25, 80}) EXPECT_FALSE(uids.arrive(stranger));
  EXPECT_FALSE(uids.arrive(10)) << "twice";
}

TEST(ArrivedUIDs, namesTheRestAtTheEnd) {
  ArrivedUIDs uids({1, 2, 3, 4, 5}, 2);
  EXPECT_TRUE(uids.arrive(2));
  EXPECT_EQ(uids.missingAtEnd(), (UIDs{1, 3, 4, 5}));
  EXPECT_TRUE(ArrivedUIDs({}, 0).missingAtEnd().empty());
}

}  // namespace
}  // namespace ambervane
