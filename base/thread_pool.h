#ifndef AMBERVANE_BASE_THREAD_POOL_H_
#define AMBERVANE_BASE_THREAD_POOL_H_

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace ambervane {

/// A fixed number of threads that run tasks in the order given. Destruction waits for all tasks.
class ThreadPool {
 public:
  explicit ThreadPool(std::size_t threads);
  ~ThreadPool();
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  /// Runs `task` on some thread; what it throws comes out of the future.
  std::future<void> submit(std::function<void()> task);
  std::size_t threadCount() const noexcept { return threads_.size(); }
  /// The number of processors this process may use, at least 1.
  static std::size_t processorCount() noexcept;

 private:
  void work();
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::packaged_task<void()>> tasks_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace ambervane

#endif  // AMBERVANE_BASE_THREAD_POOL_H_
