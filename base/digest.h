#ifndef AMBERVANE_BASE_DIGEST_H_
#define AMBERVANE_BASE_DIGEST_H_

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/bytes.h"

namespace ambervane {

/// SHA-256 over pieces (FIPS 180-4).
class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(Sha256&&) noexcept;
  Sha256& operator=(Sha256&&) noexcept;
  void update(BytesView bytes);
  /// The 32 raw bytes; no further calls after it.
  Bytes finish();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

/// The 32 raw bytes of the digest of `bytes`.
Bytes sha256(BytesView bytes);
/// The digest as 64 lower-case hexadecimal digits.
std::string sha256Hex(BytesView bytes);

/// A digest where there are millions to be kept.
using RawDigest = std::array<char, 32>;
/// Absent for anything but 64 hexadecimal digits.
std::optional<RawDigest> rawDigest(std::string_view hex);

/// `count` bytes from the system's secure random source. Throws std::runtime_error without one.
Bytes randomBytes(std::size_t count);
/// A random UUID (RFC 4122 version 4) in upper case.
std::string randomUuid();

}  // namespace ambervane

#endif  // AMBERVANE_BASE_DIGEST_H_
