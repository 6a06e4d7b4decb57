#ifndef AMBERVANE_CLI_INTERRUPT_H_
#define AMBERVANE_CLI_INTERRUPT_H_

#include <csignal>

namespace ambervane {

/// While it lives, the first Ctrl-C (or a polite request to end) is noted instead of ending the
/// process, so that the work in hand can be closed in order; a second one ends it at once. One at a
/// time.
class InterruptGuard {
 public:
  InterruptGuard();
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;
  /// Safe from any thread.
  static bool interrupted() noexcept;

 private:
  struct sigaction interrupt_ {};
  struct sigaction terminate_ {};
};

}  // namespace ambervane

#endif  // AMBERVANE_CLI_INTERRUPT_H_
