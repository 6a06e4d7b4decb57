#include "platform/http.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <memory>

#include "base/shared_library.h"
#include "base/text.h"

namespace ambervane {
namespace {

constexpr long kMaxRedirects = 3;

[[noreturn]] void fail(const char* detail) { throw HttpError(HttpError::Failed{detail}); }

#ifdef __APPLE__
constexpr const char* kLibraryFile = "libcurl.4.dylib";
#else
constexpr const char* kLibraryFile = "libcurl.so.4";
#endif

#define AMBERVANE_CURL_FUNCTIONS(X) \
  X(easy_cleanup)                   \
  X(easy_getinfo)                   \
  X(easy_init)                      \
  X(easy_perform)                   \
  X(easy_setopt)                    \
  X(easy_strerror)                  \
  X(free)                           \
  X(global_init)                    \
  X(slist_append)                   \
  X(slist_free_all)                 \
  X(url)                            \
  X(url_cleanup)                    \
  X(url_get)                        \
  X(url_set)                        \
  X(url_strerror)

/// The library's functions under their own names, without "curl_".
struct CurlLibrary {
#define AMBERVANE_DECLARE(name) decltype(&::curl_##name) name;
  AMBERVANE_CURL_FUNCTIONS(AMBERVANE_DECLARE)
#undef AMBERVANE_DECLARE
};

CurlLibrary load() {
  try {
    const SharedLibrary file(kLibraryFile);
    CurlLibrary found;
#define AMBERVANE_FIND(name) file.find("curl_" #name, found.name);
    AMBERVANE_CURL_FUNCTIONS(AMBERVANE_FIND)
#undef AMBERVANE_FIND
    return found;
  } catch (const SharedLibrary::Missing& error) {
    fail(error.what());
  }
}

/// Loaded when first asked for: few commands speak HTTP, and it brings two dozen other libraries.
/// Throws HttpError.
const CurlLibrary& curl() {
  static const CurlLibrary kLibrary = load();
  return kLibrary;
}

struct CloseTransfer {
  void operator()(CURL* handle) const { curl().easy_cleanup(handle); }
};
struct CloseUrl {
  void operator()(CURLU* handle) const { curl().url_cleanup(handle); }
};
struct CloseList {
  void operator()(curl_slist* list) const { curl().slist_free_all(list); }
};
struct FreeText {
  void operator()(char* text) const { curl().free(text); }
};
using Transfer = std::unique_ptr<CURL, CloseTransfer>;
using Url = std::unique_ptr<CURLU, CloseUrl>;
using HeaderList = std::unique_ptr<curl_slist, CloseList>;

/// What has arrived, and how much more may.
struct Incoming {
  Bytes body;
  std::size_t room;
  bool overflowed = false;

  bool take(std::size_t size) noexcept {
    overflowed = overflowed || size > room;
    if (!overflowed) room -= size;
    return !overflowed;
  }
};

// The library stops the transfer when one of these returns another number than it was given.
std::size_t takeHeader(char* /*bytes*/, std::size_t one, std::size_t count, void* incoming) {
  return static_cast<Incoming*>(incoming)->take(one * count) ? one * count : 0;
}

std::size_t takeBody(char* bytes, std::size_t one, std::size_t count, void* pointer) {
  auto& incoming = *static_cast<Incoming*>(pointer);
  if (!incoming.take(one * count)) return 0;
  try {
    incoming.body.append(bytes, one * count);
    return one * count;
  } catch (const std::exception&) {
    return 0;  // nothing may be thrown through the library
  }
}

Url parseUrl(const std::string& text) {
  Url url(curl().url());
  if (!url) fail(curl().easy_strerror(CURLE_OUT_OF_MEMORY));
  const CURLUcode code = curl().url_set(url.get(), CURLUPART_URL, text.c_str(), 0);
  if (code != CURLUE_OK) fail(curl().url_strerror(code));
  return url;
}

std::string urlPart(const Url& url, CURLUPart part) {
  char* text = nullptr;
  if (curl().url_get(url.get(), part, &text, 0) != CURLUE_OK) return {};
  return std::unique_ptr<char, FreeText>(text).get();
}

Transfer newTransfer() {
  // Not safe from two threads at once in older libraries, hence behind a static.
  static const CURLcode kReady = curl().global_init(CURL_GLOBAL_DEFAULT);
  if (kReady != CURLE_OK) fail(curl().easy_strerror(kReady));
  Transfer transfer(curl().easy_init());
  if (!transfer) fail(curl().easy_strerror(CURLE_FAILED_INIT));
  return transfer;
}

HeaderList headerList(const std::vector<std::string>& lines) {
  HeaderList list;
  const auto append = [&list](const char* line) {
    curl_slist* const longer = curl().slist_append(list.get(), line);
    if (longer == nullptr) fail(curl().easy_strerror(CURLE_OUT_OF_MEMORY));
    list.release();
    list.reset(longer);
  };
  for (const std::string& line : lines) append(line.c_str());
  append("Expect:");  // no asking for leave before a body of a few bytes
  return list;
}

template <typename Value>
void set(const Transfer& transfer, CURLoption option, Value value) {
  const CURLcode code = curl().easy_setopt(transfer.get(), option, value);
  if (code != CURLE_OK) fail(curl().easy_strerror(code));
}

void setLimits(const Transfer& transfer, const HttpRequest& request, bool isSecure) {
  set(transfer, CURLOPT_PROTOCOLS_STR, "http,https");
  set(transfer, CURLOPT_REDIR_PROTOCOLS_STR, isSecure ? "https" : "http,https");
  set(transfer, CURLOPT_FOLLOWLOCATION, 1L);
  set(transfer, CURLOPT_MAXREDIRS, kMaxRedirects);
  // A moved service wants the same request again; only 303 asks for a page in its place.
  set(transfer, CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_301 | CURL_REDIR_POST_302));
  set(transfer, CURLOPT_SSL_VERIFYPEER, 1L);
  set(transfer, CURLOPT_SSL_VERIFYHOST, 2L);
  set(transfer, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  // Zero would mean no limit at all.
  const double milliseconds = std::clamp(request.timeoutSeconds * 1000, 1.0, 1e9);
  set(transfer, CURLOPT_TIMEOUT_MS, static_cast<long>(milliseconds));
  // A name server that does not answer may hold its thread longer than that; it is left behind.
  set(transfer, CURLOPT_QUICK_EXIT, 1L);
  set(transfer, CURLOPT_NOSIGNAL, 1L);
}

}  // namespace

LocalizedMessage HttpError::message() const {
  struct Words {
    LocalizedMessage operator()(const TimedOut&) const { return {"No reply came in time", {}}; }
    LocalizedMessage operator()(const TooLarge& r) const {
      return {"The reply is larger than %@ bytes", {std::to_string(r.limit)}};
    }
    LocalizedMessage operator()(const Failed& r) const { return {"%@", {r.detail}}; }
  };
  return std::visit(Words{}, reason_);
}

HttpReply httpPost(const HttpRequest& request) {
  const Url url = parseUrl(request.url);
  const Transfer transfer = newTransfer();
  const HeaderList headers = headerList(request.headers);
  Incoming incoming{.body = {}, .room = request.maxReplyBytes};
  std::array<char, CURL_ERROR_SIZE> detail{};

  set(transfer, CURLOPT_CURLU, url.get());
  setLimits(transfer, request, urlPart(url, CURLUPART_SCHEME) == "https");
  set(transfer, CURLOPT_USERAGENT, "Ambervane");
  set(transfer, CURLOPT_HTTPHEADER, headers.get());
  set(transfer, CURLOPT_POST, 1L);
  set(transfer, CURLOPT_POSTFIELDS, request.body.data());
  set(transfer, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
  set(transfer, CURLOPT_HEADERFUNCTION, takeHeader);
  set(transfer, CURLOPT_HEADERDATA, &incoming);
  set(transfer, CURLOPT_WRITEFUNCTION, takeBody);
  set(transfer, CURLOPT_WRITEDATA, &incoming);
  set(transfer, CURLOPT_ERRORBUFFER, detail.data());

  const CURLcode code = curl().easy_perform(transfer.get());
  if (incoming.overflowed) throw HttpError(HttpError::TooLarge{request.maxReplyBytes});
  if (code == CURLE_OPERATION_TIMEDOUT) throw HttpError(HttpError::TimedOut{});
  if (code != CURLE_OK) {
    const char* const words = detail[0] != '\0' ? detail.data() : curl().easy_strerror(code);
    throw HttpError(HttpError::Failed{printable(words)});
  }
  long status = 0;
  curl().easy_getinfo(transfer.get(), CURLINFO_RESPONSE_CODE, &status);
  return {static_cast<int>(status), std::move(incoming.body)};
}

std::string urlHost(const std::string& url) {
  try {
    return urlPart(parseUrl(url), CURLUPART_HOST);
  } catch (const HttpError&) {
    return {};
  }
}

}  // namespace ambervane
