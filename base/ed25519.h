#ifndef AMBERVANE_BASE_ED25519_H_
#define AMBERVANE_BASE_ED25519_H_

#include <optional>

#include "base/bytes.h"

namespace ambervane {

/// An Ed25519 private key (RFC 8032), held as its 32 raw bytes.
class Ed25519PrivateKey {
 public:
  /// A new random key.
  static Ed25519PrivateKey generate();
  /// Absent unless `raw` has exactly 32 bytes.
  static std::optional<Ed25519PrivateKey> fromRaw(BytesView raw);

  const Bytes& raw() const noexcept { return raw_; }
  const Bytes& publicKey() const noexcept { return public_; }  ///< 32 raw bytes
  /// The 64-byte signature of `message`.
  Bytes sign(BytesView message) const;

 private:
  explicit Ed25519PrivateKey(Bytes raw);
  Bytes raw_;
  Bytes public_;
};

/// Whether `signature` is a valid signature of `message` under the 32 raw bytes `publicKey`. Keys
/// and signatures of a wrong length are simply not valid.
bool ed25519Verify(BytesView publicKey, BytesView message, BytesView signature);

}  // namespace ambervane

#endif  // AMBERVANE_BASE_ED25519_H_
