#ifndef AMBERVANE_DOCTEXT_ZIP_MEMBERS_H_
#define AMBERVANE_DOCTEXT_ZIP_MEMBERS_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/bytes.h"

struct zip;

namespace ambervane {

/// The members of a ZIP file in memory, with a bound on what all reading together may unpack: the
/// sizes such a file states are believed for nothing.
class ZipMembers {
 public:
  /// `bytes` must outlive the object. Absent for what is no ZIP file.
  static std::optional<ZipMembers> open(BytesView bytes, std::uint64_t unpackedBytes);

  /// Whether a member of that name exists; in another case will do.
  bool contains(std::string_view name) const { return index(name).has_value(); }

  /// Hands the unpacked bytes to `take` piece by piece until that returns false. False where the
  /// member is missing, damaged, encrypted or beyond the bound.
  bool read(std::string_view name, const std::function<bool(BytesView piece)>& take);

 private:
  struct Closer {
    void operator()(zip* archive) const noexcept;
  };
  explicit ZipMembers(zip* archive, std::uint64_t room) : archive_(archive), room_(room) {}
  std::optional<std::uint64_t> index(std::string_view name) const;

  std::unique_ptr<zip, Closer> archive_;
  std::uint64_t room_;  ///< bytes that may still be unpacked
};

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_ZIP_MEMBERS_H_
