#ifndef AMBERVANE_PLATFORM_HTTP_H_
#define AMBERVANE_PLATFORM_HTTP_H_

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "base/bytes.h"
#include "base/localized_message.h"

namespace ambervane {

/// Why no reply came. A reply with an error status is none of these.
class HttpError final : public TranslatableError {
 public:
  struct TimedOut {};
  struct TooLarge {
    std::size_t limit;  ///< bytes
  };
  struct Failed {
    std::string detail;  ///< the library's words, fit for a terminal
  };
  using Reason = std::variant<TimedOut, TooLarge, Failed>;
  explicit HttpError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

struct HttpRequest {
  std::string url;
  std::vector<std::string> headers;  ///< each "Name: value"
  Bytes body;
  double timeoutSeconds = 10;  ///< for all of it, name look-up and redirects included
  std::size_t maxReplyBytes = std::size_t{1} << 20;  ///< headers and body together
};

struct HttpReply {
  int status = 0;
  Bytes body;
};

/// Sends a request with the method POST and waits for the reply. Throws HttpError. Replaceable, so
/// that a test can answer in place of the network.
using HttpPost = std::function<HttpReply(const HttpRequest&)>;

/// The system's: http and https only, certificates verified, a few redirects followed (never from
/// https to http), proxies as the environment says, no signals. Safe from any thread.
HttpReply httpPost(const HttpRequest& request);

/// The host in an absolute URL, without port; empty where there is none.
std::string urlHost(const std::string& url);

}  // namespace ambervane

#endif  // AMBERVANE_PLATFORM_HTTP_H_
