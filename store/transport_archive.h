#ifndef AMBERVANE_STORE_TRANSPORT_ARCHIVE_H_
#define AMBERVANE_STORE_TRANSPORT_ARCHIVE_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <variant>

#include "base/localized_message.h"

namespace ambervane {

class TransportError final : public TranslatableError {
 public:
  struct NotAFolder {
    std::string path;
  };
  struct WriteFailed {
    int status;          ///< the ZIP library's code
    std::string reason;  ///< its words; may be empty
  };
  using Reason = std::variant<NotAFolder, WriteFailed>;
  explicit TransportError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// Called with what is being done, such as "Writing Mail", and how far that is in bytes.
using TransportProgress =
    std::function<void(const std::string& phase, std::int64_t done, std::int64_t total)>;

/// A folder wrapped into one ZIP file for sending, with its digest in a file beside it.
struct TransportArchive {
  std::filesystem::path path;
  std::int64_t bytes = 0;
  std::string digest;  ///< SHA-256 in lower-case hexadecimal

  /// Wraps `folder`, its own name at the top, into `to`, replacing what stands there once the new
  /// file is whole, and writes "<to>.sha256" as sha256sum(1) reads it. Links are kept as links,
  /// permissions and times with them; sockets and the like are left out. Files are read as they are
  /// written. Throws TransportError and FileError; no part of a ZIP is left then.
  static TransportArchive zip(const std::filesystem::path& folder, const std::filesystem::path& to,
                              const TransportProgress& progress = nullptr);
  /// Bytes of all files below `url`; what cannot be read counts as nothing.
  static std::int64_t directorySize(const std::filesystem::path& url);
  /// The digest of a file in lower-case hexadecimal. Throws FileError.
  static std::string sha256(
      const std::filesystem::path& of,
      const std::function<void(std::int64_t done, std::int64_t total)>& progress = nullptr);
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_TRANSPORT_ARCHIVE_H_
