#include "evidence/timestamp_round.h"

#include "base/text.h"

namespace ambervane {

UnreachableAuthorities& UnreachableAuthorities::ofThisProcess() {
  static UnreachableAuthorities shared;
  return shared;
}

void UnreachableAuthorities::note(const std::string& url, const std::string& failure, Date now) {
  const std::lock_guard guard(mutex_);
  failures_[url] = {failure, now};
}

std::optional<std::string> UnreachableAuthorities::recall(const std::string& url, Date now) {
  const std::lock_guard guard(mutex_);
  const auto found = failures_.find(url);
  if (found == failures_.end()) return std::nullopt;
  const double age = now.seconds - found->second.at.seconds;
  // A clock that was set back says nothing about how long ago it was.
  if (age < 0 || age >= kRememberedSeconds) return std::nullopt;
  return found->second.text;
}

TimestampOutcome askForTimestamp(const std::vector<std::string>& authorities, BytesView digest,
                                 double timeout, const Clock& clock,
                                 const TimestampEnvironment& environment) {
  std::vector<std::string> failures;
  for (const std::string& url : authorities) {
    std::string failure;
    if (const auto earlier = environment.unreachable->recall(url, clock())) {
      failure = *earlier;
    } else {
      try {
        const TimestampAuthority authority{.url = url, .timeout = timeout};
        return {authority.stampSynchronously(digest, environment.exchange), {}};
      } catch (const TimestampError& error) {
        failure = error.what();
        if (std::holds_alternative<TimestampError::Transport>(error.reason())) {
          environment.unreachable->note(url, failure, clock());
        }
      } catch (const std::exception& error) {
        failure = error.what();  // no random bytes; a seal is written all the same
      }
    }
    failures.push_back(authorityName(url) + ": " + failure);
  }
  return {std::nullopt, join(failures, "; ")};
}

}  // namespace ambervane
