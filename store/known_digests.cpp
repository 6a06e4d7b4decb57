#include "store/known_digests.h"

namespace ambervane {

bool KnownDigests::hasMessage(std::string_view sha256) const noexcept {
  return has("SELECT 1 FROM message WHERE sha256 = ?", sha256);
}

bool KnownDigests::hasBlob(std::string_view hash) const noexcept {
  // One that nobody refers to may have been erased.
  return has("SELECT 1 FROM blob WHERE hash = ? AND refcount > 0", hash);
}

bool KnownDigests::has(const char* sql, std::string_view hash) const noexcept {
  try {
    return db_->scalar(sql, {hash}).has_value();
  } catch (const std::exception&) {
    return false;  // what comes of it is work done twice
  }
}

}  // namespace ambervane
