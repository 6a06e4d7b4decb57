#include "base/thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

namespace ambervane {
namespace {

TEST(ThreadPool, runsEverythingAndHandsFailuresOut) {
  std::atomic<int> done{0};
  std::future<void> failing;
  {
    ThreadPool pool(3);
    for (int i = 0; i < 200; ++i) pool.submit([&done] { ++done; });
    failing = pool.submit([] { throw std::runtime_error("no"); });
  }
  EXPECT_EQ(done, 200);
  EXPECT_THROW(failing.get(), std::runtime_error);
}

}  // namespace
}  // namespace ambervane
