#ifndef AMBERVANE_COMPLIANCE_POOL_TASK_H_
#define AMBERVANE_COMPLIANCE_POOL_TASK_H_

#include <future>
#include <memory>
#include <utility>

#include "base/thread_pool.h"

namespace ambervane {

/// Runs `work` on the pool; its result, or what it throws, comes out of the future.
template <typename Work>
auto runOn(ThreadPool& pool, Work work) {
  auto task = std::make_shared<std::packaged_task<decltype(work())()>>(std::move(work));
  auto result = task->get_future();
  pool.submit([task] { (*task)(); });
  return result;
}

}  // namespace ambervane

#endif  // AMBERVANE_COMPLIANCE_POOL_TASK_H_
