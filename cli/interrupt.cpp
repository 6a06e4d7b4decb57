#include "cli/interrupt.h"

#include <atomic>

namespace ambervane {
namespace {

std::atomic<bool> noted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler must not wait");

void note(int /*signal*/) { noted = true; }

}  // namespace

InterruptGuard::InterruptGuard() {
  noted = false;
  struct sigaction action {};
  action.sa_handler = note;
  action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
  sigaction(SIGINT, &action, &interrupt_);
  sigaction(SIGTERM, &action, &terminate_);
}

InterruptGuard::~InterruptGuard() {
  sigaction(SIGINT, &interrupt_, nullptr);
  sigaction(SIGTERM, &terminate_, nullptr);
}

bool InterruptGuard::interrupted() noexcept { return noted; }

}  // namespace ambervane
