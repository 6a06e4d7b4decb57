#include "imapkit/bounded_wait.h"

#include <algorithm>
#include <cerrno>

#include "imapkit/imap_error.h"

namespace ambervane {

using std::chrono::steady_clock;

Deadline::Deadline(double seconds) {
  // A year for whatever is longer, or no number: adding it must not run over.
  const bool reasonable = seconds < 3.2e7;
  const std::chrono::duration<double> wait(reasonable ? std::max(seconds, 0.0) : 3.2e7);
  time_ = steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(wait);
}

void throwIfCancelled(const CancellationCheck& shouldCancel) {
  if (shouldCancel && shouldCancel()) throw IMAPError(IMAPError::Cancelled{});
}

bool waitUntilReady(std::span<pollfd> sockets, const Deadline& deadline,
                    const CancellationCheck& shouldCancel) {
  using std::chrono::milliseconds;
  for (;;) {
    throwIfCancelled(shouldCancel);
    const auto left = std::chrono::ceil<milliseconds>(deadline.time() - steady_clock::now());
    const auto pause = shouldCancel ? kCancellationPause : milliseconds(1000000);
    const auto wait = std::clamp(left, milliseconds(0), pause);
    const int ready =
        ::poll(sockets.data(), static_cast<nfds_t>(sockets.size()), static_cast<int>(wait.count()));
    // A failing poll leaves it to the socket's own functions to say why.
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;
    if (left <= milliseconds(0)) return false;
  }
}

}  // namespace ambervane
