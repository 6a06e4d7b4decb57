#include "base/ed25519.h"

#include <openssl/evp.h>

#include <memory>
#include <stdexcept>

#include "base/digest.h"

namespace ambervane {
namespace {

constexpr std::size_t kKeyBytes = 32;
constexpr std::size_t kSignatureBytes = 64;

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Context = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

const unsigned char* unsignedBytes(BytesView bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

[[noreturn]] void fail() { throw std::runtime_error("the cryptography library failed"); }

Key privateKey(BytesView bytes) {
  Key key(
      EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, unsignedBytes(bytes), bytes.size()),
      EVP_PKEY_free);
  if (!key) fail();
  return key;
}

}  // namespace

Ed25519PrivateKey::Ed25519PrivateKey(Bytes bytes) : raw_(std::move(bytes)) {
  const Key key = privateKey(raw_);
  public_.resize(kKeyBytes);
  std::size_t size = public_.size();
  if (EVP_PKEY_get_raw_public_key(key.get(), reinterpret_cast<unsigned char*>(public_.data()),
                                  &size) != 1) {
    fail();
  }
}

Ed25519PrivateKey Ed25519PrivateKey::generate() {
  return Ed25519PrivateKey(randomBytes(kKeyBytes));
}

std::optional<Ed25519PrivateKey> Ed25519PrivateKey::fromRaw(BytesView raw) {
  if (raw.size() != kKeyBytes) return std::nullopt;
  return Ed25519PrivateKey(Bytes(raw));
}

Bytes Ed25519PrivateKey::sign(BytesView message) const {
  const Key key = privateKey(raw_);
  const Context context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  Bytes signature(kSignatureBytes, '\0');
  std::size_t size = signature.size();
  if (EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key.get()) != 1 ||
      EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                     unsignedBytes(message), message.size()) != 1) {
    fail();
  }
  return signature;
}

bool ed25519Verify(BytesView publicKey, BytesView message, BytesView signature) {
  if (publicKey.size() != kKeyBytes || signature.size() != kSignatureBytes) return false;
  const Key key(EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, unsignedBytes(publicKey),
                                            publicKey.size()),
                EVP_PKEY_free);
  if (!key) return false;
  const Context context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  return EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
         EVP_DigestVerify(context.get(), unsignedBytes(signature), signature.size(),
                          unsignedBytes(message), message.size()) == 1;
}

}  // namespace ambervane
