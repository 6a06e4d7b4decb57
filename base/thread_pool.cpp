#include "base/thread_pool.h"

#include <sched.h>

#include <algorithm>

namespace ambervane {

ThreadPool::ThreadPool(std::size_t threads) {
  for (std::size_t i = 0; i < std::max<std::size_t>(threads, 1); ++i) {
    threads_.emplace_back([this] { work(); });
  }
}

ThreadPool::~ThreadPool() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  ready_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

std::future<void> ThreadPool::submit(std::function<void()> task) {
  std::packaged_task<void()> packaged(std::move(task));
  std::future<void> result = packaged.get_future();
  {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(packaged));
  }
  ready_.notify_one();
  return result;
}

void ThreadPool::work() {
  for (;;) {
    std::packaged_task<void()> task;
    {
      std::unique_lock lock(mutex_);
      ready_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
      if (tasks_.empty()) return;
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
  }
}

std::size_t ThreadPool::processorCount() noexcept {
#ifdef __linux__
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof(set), &set) == 0) {
    return static_cast<std::size_t>(std::max(CPU_COUNT(&set), 1));
  }
#endif
  return std::max(std::thread::hardware_concurrency(), 1U);
}

}  // namespace ambervane
