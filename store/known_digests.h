#ifndef AMBERVANE_STORE_KNOWN_DIGESTS_H_
#define AMBERVANE_STORE_KNOWN_DIGESTS_H_

#include <filesystem>
#include <memory>
#include <string_view>

#include "store/sqlite_database.h"

namespace ambervane {

/// Says what the archive holds for certain, so that preparing spares itself the work on it: a
/// connection of its own, which sees committed rows only. Any thread may ask. A row that is not
/// committed yet, and a failure, count as unknown.
class KnownDigests {
 public:
  /// Throws SQLiteError.
  explicit KnownDigests(const std::filesystem::path& catalog)
      : db_(std::make_unique<SQLiteDatabase>(catalog, SQLiteDatabase::Mode::readOnly,
                                             "ambervane.known")) {}

  bool hasMessage(std::string_view sha256) const noexcept;
  /// `hash` is of the encoded bytes.
  bool hasBlob(std::string_view hash) const noexcept;

 private:
  bool has(const char* sql, std::string_view hash) const noexcept;

  std::unique_ptr<SQLiteDatabase> db_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_KNOWN_DIGESTS_H_
