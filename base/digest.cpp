#include "base/digest.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <stdexcept>

namespace ambervane {
namespace {

constexpr std::size_t kDigestBytes = 32;

void require(int status) {
  if (status != 1) throw std::runtime_error("the cryptography library failed");
}

/// Looking the algorithm up costs more than hashing a short text, so it is done once.
const EVP_MD* sha256Algorithm() {
  static const EVP_MD* const kAlgorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  if (kAlgorithm == nullptr) throw std::runtime_error("the cryptography library has no SHA-256");
  return kAlgorithm;
}

}  // namespace

struct Sha256::Context {
  EVP_MD_CTX* handle = EVP_MD_CTX_new();
  Context() = default;
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  ~Context() { EVP_MD_CTX_free(handle); }
};

Sha256::Sha256() : context_(std::make_unique<Context>()) {
  require(EVP_DigestInit_ex2(context_->handle, sha256Algorithm(), nullptr));
}
Sha256::~Sha256() = default;
Sha256::Sha256(Sha256&&) noexcept = default;
Sha256& Sha256::operator=(Sha256&&) noexcept = default;

void Sha256::update(BytesView bytes) {
  require(EVP_DigestUpdate(context_->handle, bytes.data(), bytes.size()));
}

Bytes Sha256::finish() {
  Bytes digest(kDigestBytes, '\0');
  require(EVP_DigestFinal_ex(context_->handle, reinterpret_cast<unsigned char*>(digest.data()),
                             nullptr));
  return digest;
}

Bytes sha256(BytesView bytes) {
  Sha256 hash;
  hash.update(bytes);
  return hash.finish();
}

std::string sha256Hex(BytesView bytes) { return hexEncode(sha256(bytes)); }

std::optional<RawDigest> rawDigest(std::string_view hex) {
  RawDigest digest{};
  if (hex.size() != 2 * digest.size()) return std::nullopt;
  for (std::size_t i = 0; i < digest.size(); ++i) {
    const int high = hexDigit(hex[2 * i]);
    const int low = hexDigit(hex[2 * i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    digest[i] = static_cast<char>(high * 16 + low);
  }
  return digest;
}

Bytes randomBytes(std::size_t count) {
  Bytes bytes(count, '\0');
  require(RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(count)));
  return bytes;
}

std::string randomUuid() {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  Bytes bytes = randomBytes(16);
  bytes[6] = static_cast<char>((bytes[6] & 0x0f) | 0x40);
  bytes[8] = static_cast<char>((bytes[8] & 0x3f) | 0x80);
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    const auto byte = static_cast<unsigned char>(bytes[i]);
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 15]);
  }
  return text;
}

}  // namespace ambervane
