#include "platform/secret.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sys/resource.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

namespace ambervane {
namespace {

/// What is kept from the dump is the whole process: the arguments it was started with and the
/// buffers of libraries can hold the secret as well.
void forbidCoreDumps() noexcept {
  static const bool done = [] {
    rlimit limit{};
    if (::getrlimit(RLIMIT_CORE, &limit) == 0) {
      limit.rlim_cur = 0;
      ::setrlimit(RLIMIT_CORE, &limit);
    }
#ifdef __linux__
    // The limit does not bind a dump that is piped to a program.
    ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
#endif
    return true;
  }();
  static_cast<void>(done);
}

}  // namespace

Secret::Secret(std::string&& text) {
  append(text);
  // The room behind the text too: it may have been longer once.
  text.resize(text.capacity());
  eraseBytes(text.data(), text.size());
  text.clear();
}

Secret Secret::joined(std::initializer_list<std::string_view> pieces) {
  Secret secret;
  for (const std::string_view piece : pieces) secret.append(piece);
  return secret;
}

Secret::Secret(Secret&& other) noexcept
    : bytes_(std::move(other.bytes_)),
      size_(std::exchange(other.size_, 0)),
      room_(std::exchange(other.room_, 0)) {}

Secret& Secret::operator=(Secret&& other) noexcept {
  if (this == &other) return *this;
  clear();
  bytes_ = std::move(other.bytes_);
  size_ = std::exchange(other.size_, 0);
  room_ = std::exchange(other.room_, 0);
  return *this;
}

void Secret::append(std::string_view text) {
  if (text.empty()) return;
  if (room_ - size_ < text.size()) grow(std::max(size_ + text.size(), 2 * room_));
  std::memcpy(bytes_.get() + size_, text.data(), text.size());
  size_ += text.size();
}

void Secret::clear() noexcept {
  if (bytes_) eraseBytes(bytes_.get(), size_);
  bytes_.reset();
  size_ = room_ = 0;
}

void Secret::grow(std::size_t room) {
  forbidCoreDumps();
  auto bytes = std::make_unique<char[]>(room);
  if (size_ > 0) {
    std::memcpy(bytes.get(), bytes_.get(), size_);
    eraseBytes(bytes_.get(), size_);
  }
  bytes_ = std::move(bytes);
  room_ = room;
}

void eraseBytes(char* bytes, std::size_t count) noexcept { OPENSSL_cleanse(bytes, count); }

Secret base64Secret(const Secret& secret) {
  const std::string_view bytes = secret.view();
  // One string of its own, of the final size: nothing is left where it would have grown.
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                      reinterpret_cast<const unsigned char*>(bytes.data()),
                                      static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(written));
  return Secret(std::move(text));
}

std::string maskSecret(std::string_view text, std::string_view secret) {
  std::string masked;
  std::size_t at = 0;
  while (!secret.empty()) {
    const std::size_t found = text.find(secret, at);
    if (found == std::string_view::npos) break;
    masked.append(text, at, found - at).append("••••••");
    at = found + secret.size();
  }
  return masked.append(text, at);
}

}  // namespace ambervane
