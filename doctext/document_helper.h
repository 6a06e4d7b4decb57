#ifndef AMBERVANE_DOCTEXT_DOCUMENT_HELPER_H_
#define AMBERVANE_DOCTEXT_DOCUMENT_HELPER_H_

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "base/file.h"
#include "doctext/helper_protocol.h"
#include "doctext/office_text.h"

namespace ambervane {

/// What a document's reading in the helper gave.
struct DocumentText {
  DocumentReading reading = DocumentReading::damaged;
  std::string text;  ///< as the helper sent it
};

/// One running document helper. One thread at a time.
class DocumentHelper {
 public:
  /// Null where the program cannot be started.
  static std::unique_ptr<DocumentHelper> start(const std::filesystem::path& program);
  /// Takes over `process`, which leads a process group and answers at the other end of `socket`, an
  /// end that does not block.
  DocumentHelper(FileHandle socket, pid_t process)
      : socket_(std::move(socket)), process_(process) {}
  /// Ends the process and what it started.
  ~DocumentHelper();
  DocumentHelper(const DocumentHelper&) = delete;
  DocumentHelper& operator=(const DocumentHelper&) = delete;

  enum class Failure { none, gone, late };
  /// Has a document read. Absent where the helper is gone, or does not answer in the request's time
  /// and half of it more; `failure` then says which, and the helper is of no further use.
  std::optional<DocumentText> read(const HelperRequest& request, BytesView document);
  Failure failure() const noexcept { return failure_; }

 private:
  bool exchange(bool sends, char* bytes, std::size_t count);
  int remainingMilliseconds() const;

  FileHandle socket_;
  pid_t process_;
  double deadline_ = 0;  ///< of the request under way, on the steady clock
  Failure failure_ = Failure::none;
};

/// As many helpers as there are threads that have documents read at the same time. Any thread.
class DocumentHelpers {
 public:
  explicit DocumentHelpers(std::filesystem::path program) : program_(std::move(program)) {}

  /// Absent where no helper can be had or it had to be ended.
  std::optional<DocumentText> read(const HelperRequest& request, BytesView document);

 private:
  std::unique_ptr<DocumentHelper> take();

  std::filesystem::path program_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<DocumentHelper>> idle_;
};

/// The helper that belongs to the running program: beside it or in libexec/ambervane. Absent where
/// it is not installed.
std::optional<std::filesystem::path> findDocumentHelper();

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_DOCUMENT_HELPER_H_
