#ifndef AMBERVANE_STORE_RECOVERY_INDEX_H_
#define AMBERVANE_STORE_RECOVERY_INDEX_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "base/bytes.h"
#include "base/date.h"
#include "base/file.h"

namespace ambervane {

/// The text file beside a pack that remembers what the pack cannot: the folder, flags and dates of
/// each message, the digest of each blob. Written along with the records, read only to rebuild a
/// lost catalog. Layout: docs/format/sidecar.md. Not thread-safe. Failures come as FileError.
class RecoveryIndex {
 public:
  // Each field has an initialiser, so that a designated list may leave it out.

  /// One message record.
  struct Message {
    std::int64_t offset = 0;  ///< of its record in the pack
    std::string hash{};       ///< digest of the raw message
    std::string folder{};
    std::string account{};
    std::optional<std::int64_t> uid{};
    std::string flags{};                 ///< flag names joined by one blank
    std::optional<Date> internalDate{};  ///< whole seconds
    std::string retentionClass{};
    std::optional<std::int64_t> blockMember{};  ///< index in the solid block at `offset`
    friend bool operator==(const Message&, const Message&) = default;
  };
  /// One blob record.
  struct Blob {
    std::int64_t offset = 0;
    std::string hash{};  ///< digest of the encoded bytes
    std::optional<std::string> contentHash{};
    std::int64_t encodedSize = 0;
    std::optional<std::string> recipe{};  ///< JSON of a Base64Recipe
    friend bool operator==(const Blob&, const Blob&) = default;
  };
  using Entry = std::variant<Message, Blob>;

  /// Opens the sidecar of the pack at `packURL` at its end, created where it is missing.
  explicit RecoveryIndex(const std::filesystem::path& packURL);

  /// Each appends one line in one write. After a throw the next line starts afresh behind what may
  /// have been written. Not to be called after `close`.
  void appendMessage(const Message& message);
  void appendBlob(const Blob& blob);
  /// Makes all lines durable. After a throw what is on disk is unknown: close the index.
  void synchronize();
  /// Closes the file without flushing it; safe to call twice.
  void close() noexcept { file_.reset(); }

  static std::filesystem::path urlForPack(const std::filesystem::path& packURL);
  /// Hands each entry of the pack's sidecar to `body`, in order. A sidecar that is missing or
  /// cannot be read has no entries; a line that makes no sense is skipped.
  static void read(const std::filesystem::path& packURL,
                   const std::function<void(const Entry&)>& body);
  /// As `read`, over the text of a sidecar. Never fails on its own; linear in the size.
  static void parse(BytesView text, const std::function<void(const Entry&)>& body);

 private:
  void appendLine(std::string line);

  std::optional<AppendFile> file_;
  bool lineOpen_ = false;  ///< the file may end inside a line
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_RECOVERY_INDEX_H_
