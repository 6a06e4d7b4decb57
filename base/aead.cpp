#include "base/aead.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

namespace ambervane {
namespace {

constexpr int kEncrypt = 1;
constexpr int kDecrypt = 0;
/// OpenSSL takes lengths as int.
constexpr std::size_t kMaxStepBytes = std::size_t{1} << 30;

void require(bool succeeded) {
  if (!succeeded) throw std::runtime_error("the cryptography library failed");
}

const unsigned char* bytesOf(BytesView bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

unsigned char* bytesOf(Bytes& bytes) { return reinterpret_cast<unsigned char*>(bytes.data()); }

/// Looking the algorithm up costs more than sealing a key, so it is done once.
const EVP_CIPHER* aes256Gcm() {
  static const EVP_CIPHER* const kAlgorithm = EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr);
  if (kAlgorithm == nullptr) {
    throw std::runtime_error("the cryptography library has no AES-256-GCM");
  }
  return kAlgorithm;
}

EVP_CIPHER_CTX* contextOfThread() {
  thread_local const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> kContext(
      EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
  require(kContext != nullptr);
  return kContext.get();
}

/// One pass of the cipher in this thread's context, which forgets the key at the end.
class Pass {
 public:
  Pass(int direction, BytesView key, BytesView nonce, BytesView aad) {
    if (key.size() != SymmetricKey::kBytes) {
      throw std::invalid_argument("AES-256 needs a key of 32 bytes");
    }
    require(EVP_CipherInit_ex2(context_, aes256Gcm(), bytesOf(key), bytesOf(nonce), direction,
                               nullptr) == 1);
    update(aad, nullptr);
  }
  ~Pass() { EVP_CIPHER_CTX_reset(context_); }
  Pass(const Pass&) = delete;
  Pass& operator=(const Pass&) = delete;

  /// Without `out` the bytes are authenticated only; else it has room for as many.
  void update(BytesView in, unsigned char* out) {
    while (!in.empty()) {
      const BytesView step = in.substr(0, kMaxStepBytes);
      int written = 0;
      require(EVP_CipherUpdate(context_, out, &written, bytesOf(step),
                               static_cast<int>(step.size())) == 1);
      if (out != nullptr) out += step.size();
      in.remove_prefix(step.size());
    }
  }
  /// When decrypting, false for a tag that does not match.
  bool finish() {
    unsigned char none = 0;  // a stream mode has nothing left to write
    int written = 0;
    return EVP_CipherFinal_ex(context_, &none, &written) == 1;
  }
  void readTag(unsigned char* tag) {
    require(EVP_CIPHER_CTX_ctrl(context_, EVP_CTRL_AEAD_GET_TAG, kAesGcmTagBytes, tag) == 1);
  }
  void expectTag(BytesView tag) {
    // OpenSSL copies the tag; only the signature of its function lacks the const.
    require(EVP_CIPHER_CTX_ctrl(context_, EVP_CTRL_AEAD_SET_TAG, kAesGcmTagBytes,
                                const_cast<char*>(tag.data())) == 1);
  }

 private:
  EVP_CIPHER_CTX* context_ = contextOfThread();
};

}  // namespace

void cleanse(Bytes& bytes) noexcept {
  OPENSSL_cleanse(bytes.data(), bytes.size());
  bytes.clear();
}

SymmetricKey SymmetricKey::random() {
  SymmetricKey key;
  require(RAND_priv_bytes(reinterpret_cast<unsigned char*>(key.bytes_.data()), kBytes) == 1);
  return key;
}

std::optional<SymmetricKey> SymmetricKey::fromRaw(BytesView raw) {
  if (raw.size() != kBytes) return std::nullopt;
  SymmetricKey key;
  std::copy(raw.begin(), raw.end(), key.bytes_.begin());
  return key;
}

SymmetricKey::SymmetricKey(SymmetricKey&& other) noexcept : bytes_(other.bytes_) {
  OPENSSL_cleanse(other.bytes_.data(), kBytes);
}

SymmetricKey& SymmetricKey::operator=(SymmetricKey&& other) noexcept {
  if (this != &other) {
    bytes_ = other.bytes_;
    OPENSSL_cleanse(other.bytes_.data(), kBytes);
  }
  return *this;
}

SymmetricKey::~SymmetricKey() { OPENSSL_cleanse(bytes_.data(), kBytes); }

Bytes aesGcmSeal(BytesView plain, BytesView key, BytesView aad) {
  Bytes combined(kAesGcmNonceBytes + plain.size() + kAesGcmTagBytes, '\0');
  require(RAND_bytes(bytesOf(combined), kAesGcmNonceBytes) == 1);
  Pass pass(kEncrypt, key, BytesView(combined).substr(0, kAesGcmNonceBytes), aad);
  pass.update(plain, bytesOf(combined) + kAesGcmNonceBytes);
  require(pass.finish());
  pass.readTag(bytesOf(combined) + kAesGcmNonceBytes + plain.size());
  return combined;
}

std::optional<Bytes> aesGcmOpen(BytesView combined, BytesView key, BytesView aad) {
  if (combined.size() < kAesGcmNonceBytes + kAesGcmTagBytes) return std::nullopt;
  const BytesView nonce = combined.substr(0, kAesGcmNonceBytes);
  const BytesView tag = combined.substr(combined.size() - kAesGcmTagBytes);
  combined.remove_prefix(nonce.size());
  combined.remove_suffix(tag.size());
  Pass pass(kDecrypt, key, nonce, aad);
  Bytes plain(combined.size(), '\0');
  pass.update(combined, bytesOf(plain));
  pass.expectTag(tag);
  if (!pass.finish()) {
    cleanse(plain);
    return std::nullopt;
  }
  return plain;
}

}  // namespace ambervane
