#ifndef AMBERVANE_IMAPKIT_BOUNDED_WAIT_H_
#define AMBERVANE_IMAPKIT_BOUNDED_WAIT_H_

#include <poll.h>

#include <chrono>
#include <functional>
#include <span>

namespace ambervane {

/// A moment that a wait does not outlast.
class Deadline {
 public:
  using Time = std::chrono::steady_clock::time_point;
  /// So many seconds from now; less than none counts as none.
  explicit Deadline(double seconds);
  bool hasPassed() const { return std::chrono::steady_clock::now() >= time_; }
  Time time() const noexcept { return time_; }
  /// The earlier of both.
  Deadline cappedAt(Time time) const { return Deadline(time < time_ ? time : time_); }

 private:
  explicit Deadline(Time time) : time_(time) {}
  Time time_;
};

/// Asked several times a second while something is waited for; may be empty.
using CancellationCheck = std::function<bool()>;

/// How long a wait goes on before the cancellation check is asked again.
inline constexpr std::chrono::milliseconds kCancellationPause{100};

/// Throws IMAPError (Cancelled) when the check says yes.
void throwIfCancelled(const CancellationCheck& shouldCancel);

/// Waits until one of `sockets` is ready; false when the deadline passed first. Throws IMAPError
/// (Cancelled).
bool waitUntilReady(std::span<pollfd> sockets, const Deadline& deadline,
                    const CancellationCheck& shouldCancel);

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_BOUNDED_WAIT_H_
