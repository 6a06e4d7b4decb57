// The connection on which statements of a user's own run.
//
// Three things hold such a statement to the catalog's rows, each enough alone against writing: the
// connection is read-only, `query_only` is set, and an authoriser is asked for every step while a
// statement is compiled and lets reading pass and nothing else. So a statement cannot attach a
// file, set anything, begin a transaction or call a function that reaches outside the database. A
// progress handler ends what takes too long, and limits keep one value from filling the memory.

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>

#include "base/text.h"
#include "store/sqlite_database.h"

namespace ambervane {
namespace {

/// Steps of SQLite's machine between two looks at the clock.
constexpr int kStepsBetweenLooks = 4000;
constexpr int kMaxValueBytes = 64 << 20;
constexpr int kMaxFencedLikePattern = 1000;

/// Functions of SQLite, of its shell and of its common extensions that reach outside a database.
constexpr std::array<std::string_view, 9> kForbiddenFunctions = {
    "load_extension", "readfile", "writefile", "edit",      "fts3_tokenizer",
    "lsmode",         "fsdir",    "zipfile",   "sqlite_log"};
/// The settings that reading itself asks for: FTS5 looks whether the data has changed.
constexpr std::array<std::string_view, 2> kReadingPragmas = {"data_version", "table_info"};

template <std::size_t N>
bool isOneOf(const char* name, const std::array<std::string_view, N>& names) {
  return name != nullptr && std::any_of(names.begin(), names.end(), [name](std::string_view each) {
           return asciiEqualIgnoringCase(each, name);
         });
}

int authorise(void* /*unused*/, int action, const char* first, const char* second,
              const char* database, const char* /*inner*/) {
  switch (action) {
    case SQLITE_SELECT:
    case SQLITE_RECURSIVE:
      return SQLITE_OK;
    case SQLITE_READ:
      return database == nullptr || std::string_view(database) == "main" ? SQLITE_OK : SQLITE_DENY;
    case SQLITE_FUNCTION:
      return isOneOf(second, kForbiddenFunctions) ? SQLITE_DENY : SQLITE_OK;
    case SQLITE_PRAGMA:
      return isOneOf(first, kReadingPragmas) ? SQLITE_OK : SQLITE_DENY;
    default:
      return SQLITE_DENY;
  }
}

}  // namespace

struct SQLiteDatabase::Fence {
  std::chrono::steady_clock::time_point end;
  static int isOver(void* fence) {
    return std::chrono::steady_clock::now() >= static_cast<Fence*>(fence)->end ? 1 : 0;
  }
};

void SQLiteDatabase::fence(std::chrono::milliseconds time) {
  const std::lock_guard lock(mutex_);
  execute("PRAGMA query_only = 1");
  execute("PRAGMA trusted_schema = 0");
  sqlite3_db_config(handle_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(handle_, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
  sqlite3_limit(handle_, SQLITE_LIMIT_ATTACHED, 0);
  sqlite3_limit(handle_, SQLITE_LIMIT_LENGTH, kMaxValueBytes);
  sqlite3_limit(handle_, SQLITE_LIMIT_LIKE_PATTERN_LENGTH, kMaxFencedLikePattern);
  fence_ = std::shared_ptr<Fence>(new Fence{std::chrono::steady_clock::now() + time});
  sqlite3_progress_handler(handle_, kStepsBetweenLooks, Fence::isOver, fence_.get());
  sqlite3_set_authorizer(handle_, authorise, nullptr);
}

}  // namespace ambervane
