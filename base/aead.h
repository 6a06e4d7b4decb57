#ifndef AMBERVANE_BASE_AEAD_H_
#define AMBERVANE_BASE_AEAD_H_

#include <array>
#include <cstddef>
#include <optional>

#include "base/bytes.h"

namespace ambervane {

/// Overwrites `bytes` in a way the compiler cannot leave out, and empties it.
void cleanse(Bytes& bytes) noexcept;

/// A 256-bit secret. Its bytes are overwritten when it goes and when it is moved away.
class SymmetricKey {
 public:
  static constexpr std::size_t kBytes = 32;

  /// A new key from the system's secure random source. Throws std::runtime_error without one.
  static SymmetricKey random();
  /// Absent unless `raw` has exactly `kBytes` bytes, of which a copy is made.
  static std::optional<SymmetricKey> fromRaw(BytesView raw);

  SymmetricKey(SymmetricKey&& other) noexcept;
  SymmetricKey& operator=(SymmetricKey&& other) noexcept;
  ~SymmetricKey();

  BytesView raw() const noexcept { return {bytes_.data(), bytes_.size()}; }

 private:
  SymmetricKey() = default;
  std::array<char, kBytes> bytes_{};
};

/// What `aesGcmSeal` adds to the plain text.
inline constexpr std::size_t kAesGcmNonceBytes = 12;
inline constexpr std::size_t kAesGcmTagBytes = 16;

/// AES-256-GCM (NIST SP 800-38D) in combined form: a fresh random nonce, the cipher text, the tag.
/// `aad` is authenticated and not stored. Safe from any thread. Throws std::invalid_argument for a
/// key that has not 32 bytes, std::runtime_error when the cryptography library fails.
Bytes aesGcmSeal(BytesView plain, BytesView key, BytesView aad);
/// The plain text of a combined form; absent when it is too short, was changed, or was sealed under
/// another key or `aad`. Throws as `aesGcmSeal`.
std::optional<Bytes> aesGcmOpen(BytesView combined, BytesView key, BytesView aad);

}  // namespace ambervane

#endif  // AMBERVANE_BASE_AEAD_H_
