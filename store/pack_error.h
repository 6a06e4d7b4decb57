#ifndef AMBERVANE_STORE_PACK_ERROR_H_
#define AMBERVANE_STORE_PACK_ERROR_H_

#include <cstdint>
#include <string>
#include <utility>
#include <variant>

#include "base/localized_message.h"

namespace ambervane {

/// What is wrong with a pack, a record in it, or a request to write one.
class PackError final : public TranslatableError {
 public:
  struct CorruptRecord {
    std::string text;  ///< English; for a person who looks into the pack
  };
  struct ChecksumMismatch {
    std::int64_t packID;
    std::int64_t offset;  ///< of the record's first byte
  };
  struct PackMissing {
    std::string name;  ///< of the file, without its folder
  };
  struct TooLarge {
    std::uint64_t bytes;
  };
  struct ReadOnly {};
  using Reason = std::variant<CorruptRecord, ChecksumMismatch, PackMissing, TooLarge, ReadOnly>;

  explicit PackError(Reason reason) : reason_(std::move(reason)) {}
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

#endif  // AMBERVANE_STORE_PACK_ERROR_H_
