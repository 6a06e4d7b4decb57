#ifndef AMBERVANE_STORE_ARCHIVE_ERROR_H_
#define AMBERVANE_STORE_ARCHIVE_ERROR_H_

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "base/localized_message.h"

namespace ambervane {

/// What an archive refuses or lacks.
class ArchiveError final : public TranslatableError {
 public:
  struct NotAnArchive {
    std::string path;
  };
  struct DestinationNotEmpty {
    std::string path;
  };
  struct VersionUnsupported {
    int found;  ///< the archive's format version
    int needs;  ///< its minimum reader version
    int have;   ///< what this build understands
  };
  struct LockedByAnother {
    std::optional<std::string> holder;  ///< who holds it, where that is known
  };
  struct LockUnavailable {
    std::string reason;
  };
  struct MessageMissing {
    std::int64_t id;
  };
  struct Erased {
    std::int64_t id;
  };
  struct OnLegalHold {
    std::int64_t id;
  };
  struct BlobMissing {
    std::string hash;
  };
  struct BlobErased {
    std::string hash;
  };
  struct ReadOnly {};
  struct NotEnoughSpace {
    std::string what;       ///< what was about to be done, such as "Importing mail"
    std::string needed;     ///< for people, such as "1.2 GB"
    std::string available;  ///< likewise
  };
  using Reason = std::variant<NotAnArchive, DestinationNotEmpty, VersionUnsupported,
                              LockedByAnother, LockUnavailable, MessageMissing, Erased, OnLegalHold,
                              BlobMissing, BlobErased, ReadOnly, NotEnoughSpace>;

  explicit ArchiveError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  template <typename T>
  bool is() const noexcept {
    return std::holds_alternative<T>(reason_);
  }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_ARCHIVE_ERROR_H_
