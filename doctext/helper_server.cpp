#include "doctext/helper_server.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>
#include <utility>

#include "base/sanitized.h"
#include "doctext/pdf_text.h"
#include "doctext/xml_reader.h"

// The helper loads the libraries once and then forks for each document, which costs a fraction of
// what starting a program would. It has one thread, so forking is safe. The child writes into
// memory that both share, and only the length it leaves there counts, so an answer is never torn.

namespace ambervane {
namespace {

/// Larger ones are given back before the next request.
constexpr std::size_t kKeptBuffer = std::size_t{1} << 20;

bool receiveAll(int socket, char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t got = ::read(socket, bytes, count);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    bytes += got;
    count -= static_cast<std::size_t>(got);
  }
  return true;
}

bool sendAll(int socket, BytesView bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::write(socket, bytes.data(), bytes.size());
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

/// Memory in which a child leaves its text.
class SharedText {
 public:
  explicit SharedText(std::size_t capacity) : capacity_(capacity) {
    void* const memory = ::mmap(nullptr, sizeof(Head) + capacity, PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED) head_ = new (memory) Head;
  }
  ~SharedText() {
    if (head_ != nullptr) ::munmap(head_, sizeof(Head) + capacity_);
  }
  SharedText(const SharedText&) = delete;
  SharedText& operator=(const SharedText&) = delete;

  explicit operator bool() const noexcept { return head_ != nullptr; }
  void publish(std::string_view text) noexcept {
    const std::size_t known = head_->length.load(std::memory_order_relaxed);
    const std::size_t length = std::min(text.size(), capacity_);
    if (length <= known) return;
    std::memcpy(bytes() + known, text.data() + known, length - known);
    head_->length.store(length, std::memory_order_release);
  }
  void finish(DocumentReading reading) noexcept { head_->reading.store(reading); }
  DocumentReading reading() const noexcept { return head_->reading.load(); }
  std::string_view text() const noexcept {
    return {bytes(), std::min(head_->length.load(std::memory_order_acquire), capacity_)};
  }

 private:
  struct Head {
    std::atomic<std::size_t> length{0};
    std::atomic<DocumentReading> reading{DocumentReading::damaged};
  };
  char* bytes() const noexcept { return reinterpret_cast<char*>(head_ + 1); }

  std::size_t capacity_;
  Head* head_ = nullptr;
};

void limitResource(decltype(RLIMIT_AS) resource, std::uint64_t value) {
  rlimit limit{};
  limit.rlim_cur = limit.rlim_max = static_cast<rlim_t>(value);
  ::setrlimit(resource, &limit);
}

void startTimer(decltype(ITIMER_REAL) timer, std::uint64_t milliseconds) {
  itimerval value{};
  value.it_value.tv_sec = static_cast<time_t>(milliseconds / 1000);
  value.it_value.tv_usec = static_cast<suseconds_t>(milliseconds % 1000 * 1000);
  ::setitimer(timer, &value, nullptr);
}

/// What bounds a child: timers end it where the reading takes too long, by their default action.
void limitThisProcess(const HelperRequest& request) {
  startTimer(ITIMER_PROF, request.processorMilliseconds);
  startTimer(ITIMER_REAL, request.totalMilliseconds);
  limitResource(RLIMIT_CORE, 0);
  // Reading leaves no files behind.
  limitResource(RLIMIT_FSIZE, 0);
  if (!kIsSanitized) limitResource(RLIMIT_AS, request.memoryBytes);
}

[[noreturn]] void readInChild(const HelperRequest& request, BytesView document,
                              const DocumentReader& reader, SharedText& shared) {
  limitThisProcess(request);
  TextCollector collector(request.textBytes);
  collector.setObserver([&](std::string_view text) { shared.publish(text); });
  const DocumentReading reading = reader(request, document, collector);
  shared.publish(collector.text());
  shared.finish(reading);
  ::_exit(0);
}

/// False where the other end is gone.
bool answer(int socket, const HelperRequest& request, BytesView document,
            const DocumentReader& reader) {
  HelperAnswer head;
  head.reading = static_cast<std::uint32_t>(DocumentReading::damaged);
  SharedText shared(request.textBytes);
  std::string_view text;
  const pid_t child = shared ? ::fork() : -1;
  if (child == 0) readInChild(request, document, reader, shared);
  if (child > 0) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    const bool ended = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (ended) head.reading = static_cast<std::uint32_t>(shared.reading());
    text = shared.text();
  }
  head.textBytes = text.size();
  return sendAll(socket, {reinterpret_cast<const char*>(&head), sizeof head}) &&
         sendAll(socket, text);
}

/// Undoes what the parent may have done to the signals that bound a child.
void resetSignals() {
  for (const int signal : {SIGALRM, SIGPROF, SIGXFSZ}) std::signal(signal, SIG_DFL);
  std::signal(SIGPIPE, SIG_IGN);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

int serveDocuments(int socket, const DocumentReader& reader) {
  resetSignals();
  Bytes document;
  HelperRequest request;
  while (receiveAll(socket, reinterpret_cast<char*>(&request), sizeof request)) {
    if (request.version != kHelperVersion) return 1;
    document.resize(request.documentBytes);
    if (!receiveAll(socket, document.data(), document.size())) return 1;
    if (!answer(socket, request, document, reader)) return 1;
    if (document.capacity() > kKeptBuffer) Bytes().swap(document);
  }
  return 0;
}

DocumentReading readDocument(const HelperRequest& request, BytesView document,
                             TextCollector& collector) {
  const auto whole = [](bool read) {
    return read ? DocumentReading::complete : DocumentReading::damaged;
  };
  switch (request.task) {
    case HelperTask::pdf:
      return whole(readPdfText(document, collector));
    case HelperTask::office:
      return readOfficeText(document, request.unpackedBytes, collector);
    case HelperTask::xml:
      return whole(readXmlText(document, collector));
  }
  return DocumentReading::damaged;
}

}  // namespace ambervane
