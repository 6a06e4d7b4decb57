#include "store/sqlite_database.h"

#include <fmt/format.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <tuple>

#include "base/file.h"
#include "base/text.h"

namespace ambervane {
namespace {

constexpr int kBusyMilliseconds = 10000;
/// 24 MB: what a search reads to find its page is still there when it counts.
constexpr const char* kCacheSize = "PRAGMA cache_size=-24000";
/// Statements kept prepared; queries built from what a user typed would otherwise pile up.
constexpr std::size_t kCachedStatements = 200;

std::string escapedForUri(const std::filesystem::path& path) {
  std::string out;
  for (const char c : path.native()) {
    switch (c) {
      case '#':
        out += "%23";
        break;
      case '?':
        out += "%3f";
        break;
      case '%':
        out += "%25";
        break;
      default:
        out.push_back(c);
    }
  }
  return out;
}

std::shared_ptr<const std::vector<std::string>> columnNames(sqlite3_stmt* statement) {
  auto names = std::make_shared<std::vector<std::string>>();
  const int count = sqlite3_column_count(statement);
  for (int i = 0; i < count; ++i) names->emplace_back(sqlite3_column_name(statement, i));
  return names;
}

}  // namespace

bool SQLiteError::isMediumFailure() const noexcept {
  const auto* step = std::get_if<Step>(&reason_);
  if (step == nullptr) return false;
  const int primary = step->code & 0xff;
  return primary == SQLITE_FULL || primary == SQLITE_IOERR || primary == SQLITE_READONLY ||
         primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

bool SQLiteError::isOutOfTime() const noexcept {
  const auto* step = std::get_if<Step>(&reason_);
  return step != nullptr && (step->code & 0xff) == SQLITE_INTERRUPT;
}

bool SQLiteError::isDamage() const noexcept {
  if (const auto* open = std::get_if<Open>(&reason_)) return open->code == 0;
  // Our own statements fail only where tables are missing.
  if (std::holds_alternative<Prepare>(reason_)) return true;
  const auto* step = std::get_if<Step>(&reason_);
  const int code = step != nullptr ? step->code & 0xff : SQLITE_OK;
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

LocalizedMessage SQLiteError::message() const {
  struct Words {
    LocalizedMessage operator()(const Open& r) const {
      return {"Cannot open database at %1$@ (code %2$@)", {r.path, std::to_string(r.code)}};
    }
    LocalizedMessage operator()(const Prepare& r) const {
      return {"SQL prepare failed: %1$@ — %2$@", {r.sql, r.message}};
    }
    LocalizedMessage operator()(const Step& r) const {
      return {"SQL step failed: %1$@ — %2$@", {r.sql, r.message}};
    }
    LocalizedMessage operator()(const Misuse& r) const { return {"%@", {r.text}}; }
  };
  return std::visit(Words{}, reason_);
}

const SQLValue* Row::find(std::string_view column) const noexcept {
  const auto at = std::find(columns_->begin(), columns_->end(), column);
  if (at == columns_->end()) return nullptr;
  return &values_[static_cast<std::size_t>(at - columns_->begin())];
}

std::int64_t Row::integer(std::string_view column) const {
  return optionalInteger(column).value_or(0);
}

std::optional<std::int64_t> Row::optionalInteger(std::string_view column) const {
  const SQLValue* value = find(column);
  if (value == nullptr) return std::nullopt;
  if (const auto* integer = std::get_if<std::int64_t>(value)) return *integer;
  if (const auto* real = std::get_if<double>(value)) return static_cast<std::int64_t>(*real);
  return std::nullopt;
}

std::string Row::string(std::string_view column) const {
  return optionalString(column).value_or("");
}

std::optional<std::string> Row::optionalString(std::string_view column) const {
  const SQLValue* value = find(column);
  if (value == nullptr) return std::nullopt;
  if (const auto* text = std::get_if<std::string>(value)) return *text;
  if (const auto* integer = std::get_if<std::int64_t>(value)) return std::to_string(*integer);
  return std::nullopt;
}

std::optional<double> Row::real(std::string_view column) const {
  const SQLValue* value = find(column);
  if (value == nullptr) return std::nullopt;
  if (const auto* real = std::get_if<double>(value)) return *real;
  if (const auto* integer = std::get_if<std::int64_t>(value)) return static_cast<double>(*integer);
  return std::nullopt;
}

std::optional<Date> Row::date(std::string_view column) const {
  const auto seconds = real(column);
  if (!seconds) return std::nullopt;
  return Date{*seconds};
}

std::optional<Bytes> Row::blob(std::string_view column) const {
  const SQLValue* value = find(column);
  if (value == nullptr) return std::nullopt;
  if (const auto* blob = std::get_if<SQLBlob>(value)) return blob->bytes;
  return std::nullopt;
}

/// A prepared statement in use: when the use ends it is reset and unbound, or finalised.
class SQLiteDatabase::Statement {
 public:
  Statement(SQLiteDatabase& database, std::string_view sql) {
    std::tie(statement_, temporary_) = database.prepare(sql);
  }
  ~Statement() {
    if (temporary_) {
      sqlite3_finalize(statement_);
    } else {
      sqlite3_reset(statement_);
      sqlite3_clear_bindings(statement_);
    }
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  operator sqlite3_stmt*() const noexcept { return statement_; }

 private:
  sqlite3_stmt* statement_ = nullptr;
  bool temporary_ = false;
};

SQLiteDatabase::SQLiteDatabase(std::filesystem::path path, Mode mode, std::string label)
    : path_(std::move(path)), label_(std::move(label)) {
  try {
    open(mode);
  } catch (...) {
    for (const auto& [sql, statement] : statements_) sqlite3_finalize(statement);
    sqlite3_close_v2(handle_);
    throw;
  }
}

void SQLiteDatabase::open(Mode mode) {
  // Each connection is guarded by our own mutex, so SQLite's is not needed.
  int flags = SQLITE_OPEN_NOMUTEX;
  std::string name = path_.native();
  // A true read-only connection to a WAL database leaves its "-wal" and "-shm" behind, because it
  // may not remove them; where we may write, a connection that only promises not to does better.
  const bool tidiesUp = mode == Mode::readOnly && ::access(path_.c_str(), W_OK) == 0 &&
                        ::access(path_.parent_path().c_str(), W_OK) == 0;
  std::error_code ignored;
  const auto logBytes = std::filesystem::file_size(name + "-wal", ignored);
  const bool hasLog = !ignored && logBytes > 0;
  if (mode == Mode::readWrite) {
    flags |= SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  } else {
    flags |= tidiesUp ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY;
  }
  if (mode == Mode::immutable) {
    flags |= SQLITE_OPEN_URI;
    name = "file:" + escapedForUri(std::filesystem::absolute(path_)) + "?immutable=1";
  }
  const int code = sqlite3_open_v2(name.c_str(), &handle_, flags, nullptr);
  if (code != SQLITE_OK) throw SQLiteError(SQLiteError::Open{printable(path_.native()), code});
  sqlite3_extended_result_codes(handle_, 1);
  sqlite3_busy_timeout(handle_, kBusyMilliseconds);
  if (tidiesUp) {
    execute("PRAGMA query_only=ON");
    // What a crashed writer left is for the next writer to take in.
    if (hasLog) sqlite3_db_config(handle_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  }
  execute(kCacheSize);
  if (mode == Mode::readWrite) configureForWriting();
}

void SQLiteDatabase::configureForWriting() {
  try {
    execute("PRAGMA journal_mode=WAL");
  } catch (const SQLiteError&) {
    // A file system without shared memory keeps the rollback journal, which is as safe.
  }
  execute("PRAGMA synchronous=FULL");
  execute("PRAGMA foreign_keys=ON");
  execute("PRAGMA secure_delete=ON");
  execute("PRAGMA journal_size_limit=33554432");
  // Pages change in many transactions before they come to rest; 16 MB of log copies them back once.
  execute("PRAGMA wal_autocheckpoint=4000");
}

SQLiteDatabase::~SQLiteDatabase() {
  for (const auto& [sql, statement] : statements_) sqlite3_finalize(statement);
  sqlite3_close_v2(handle_);
}

std::unique_ptr<SQLiteDatabase> SQLiteDatabase::reading(const std::filesystem::path& path,
                                                        const std::string& label,
                                                        bool mediumIsReadOnly, Mode mode) {
  static constexpr std::string_view kProbe = "SELECT count(*) FROM sqlite_master";
  if (!mediumIsReadOnly) {
    try {
      auto database = std::make_unique<SQLiteDatabase>(path, mode, label);
      database->scalar(kProbe);
      return database;
    } catch (const SQLiteError&) {
      // The write-ahead log cannot be read where its shared memory cannot be made; read without.
    }
  }
  try {
    auto database = std::make_unique<SQLiteDatabase>(path, Mode::immutable, label);
    database->scalar(kProbe);
    return database;
  } catch (const SQLiteError&) {
    throw SQLiteError(SQLiteError::Open{printable(path.native()), 0});
  }
}

std::pair<sqlite3_stmt*, bool> SQLiteDatabase::prepare(std::string_view sql) {
  const auto known = statements_.find(sql);
  const bool isKnown = known != statements_.end();
  if (isKnown && sqlite3_stmt_busy(known->second) == 0) return {known->second, false};
  sqlite3_stmt* statement = nullptr;
  const char* tail = nullptr;
  if (sqlite3_prepare_v3(handle_, sql.data(), static_cast<int>(sql.size()),
                         SQLITE_PREPARE_PERSISTENT, &statement, &tail) != SQLITE_OK) {
    throw SQLiteError(SQLiteError::Prepare{std::string(sql), sqlite3_errmsg(handle_)});
  }
  const std::string_view rest(tail, static_cast<std::size_t>(sql.data() + sql.size() - tail));
  if (statement == nullptr || !trim(rest).empty()) {
    sqlite3_finalize(statement);
    throw SQLiteError(SQLiteError::Misuse{"Expected one SQL statement"});
  }
  // The kept one may still be stepping further up, in a row callback that asks the same again.
  if (isKnown || statements_.size() >= kCachedStatements) return {statement, true};
  statements_.emplace(std::string(sql), statement);
  return {statement, false};
}

void SQLiteDatabase::bind(sqlite3_stmt* statement, std::string_view sql,
                          const SQLBindings& bindings) {
  if (sqlite3_bind_parameter_count(statement) != static_cast<int>(bindings.size())) {
    throw SQLiteError(
        SQLiteError::Misuse{fmt::format("{} parameters given, {} expected: {}", bindings.size(),
                                        sqlite3_bind_parameter_count(statement), sql)});
  }
  struct Bind {
    sqlite3_stmt* statement;
    int index;
    int operator()(SQLNull) const { return sqlite3_bind_null(statement, index); }
    int operator()(std::int64_t v) const { return sqlite3_bind_int64(statement, index, v); }
    int operator()(double v) const { return sqlite3_bind_double(statement, index, v); }
    int operator()(std::string_view v) const {
      // An empty view may have no address, which SQLite would read as NULL.
      return sqlite3_bind_text64(statement, index, v.data() == nullptr ? "" : v.data(), v.size(),
                                 SQLITE_STATIC, SQLITE_UTF8);
    }
    int operator()(SQLBytes v) const {
      return sqlite3_bind_blob64(statement, index, v.bytes.data() == nullptr ? "" : v.bytes.data(),
                                 v.bytes.size(), SQLITE_STATIC);
    }
  };
  int index = 1;
  for (const SQLBinding& binding : bindings) {
    if (std::visit(Bind{statement, index++}, binding.value_) != SQLITE_OK) failStep(sql);
  }
}

void SQLiteDatabase::failStep(std::string_view sql) {
  throw SQLiteError(SQLiteError::Step{std::string(sql), sqlite3_errmsg(handle_),
                                      sqlite3_extended_errcode(handle_)});
}

Row SQLiteDatabase::readRow(sqlite3_stmt* statement,
                            const std::shared_ptr<const std::vector<std::string>>& columns) {
  std::vector<SQLValue> values;
  values.reserve(columns->size());
  for (int i = 0; i < static_cast<int>(columns->size()); ++i) {
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, i));
    switch (sqlite3_column_type(statement, i)) {
      case SQLITE_INTEGER:
        values.emplace_back(std::int64_t{sqlite3_column_int64(statement, i)});
        break;
      case SQLITE_FLOAT:
        values.emplace_back(sqlite3_column_double(statement, i));
        break;
      case SQLITE_TEXT:
        values.emplace_back(
            std::string(reinterpret_cast<const char*>(sqlite3_column_text(statement, i)), size));
        break;
      case SQLITE_BLOB: {
        const auto* data = static_cast<const char*>(sqlite3_column_blob(statement, i));
        values.emplace_back(SQLBlob{data == nullptr ? Bytes() : Bytes(data, size)});
        break;
      }
      default:
        values.emplace_back(SQLNull{});
    }
  }
  return {columns, std::move(values)};
}

void SQLiteDatabase::execute(const std::string& sql) {
  const std::lock_guard lock(mutex_);
  if (sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) failStep(sql);
}

std::int64_t SQLiteDatabase::run(std::string_view sql, const SQLBindings& bindings) {
  const std::lock_guard lock(mutex_);
  const Statement statement(*this, sql);
  bind(statement, sql, bindings);
  int code = SQLITE_ROW;
  while (code == SQLITE_ROW) code = sqlite3_step(statement);
  if (code != SQLITE_DONE) failStep(sql);
  return sqlite3_changes64(handle_);
}

std::int64_t SQLiteDatabase::insert(std::string_view sql, const SQLBindings& bindings) {
  const std::lock_guard lock(mutex_);
  run(sql, bindings);
  return sqlite3_last_insert_rowid(handle_);
}

std::vector<Row> SQLiteDatabase::query(std::string_view sql, const SQLBindings& bindings) {
  std::vector<Row> rows;
  forEachRow(sql, bindings, [&rows](const Row& row) {
    rows.push_back(row);
    return true;
  });
  return rows;
}

void SQLiteDatabase::forEachRow(std::string_view sql, const SQLBindings& bindings,
                                const std::function<bool(const Row&)>& body) {
  const std::lock_guard lock(mutex_);
  const Statement statement(*this, sql);
  bind(statement, sql, bindings);
  const auto columns = columnNames(statement);
  int code = sqlite3_step(statement);
  for (; code == SQLITE_ROW; code = sqlite3_step(statement)) {
    if (!body(readRow(statement, columns))) return;
  }
  if (code != SQLITE_DONE) failStep(sql);
}

std::optional<SQLValue> SQLiteDatabase::scalar(std::string_view sql, const SQLBindings& bindings) {
  std::optional<SQLValue> result;
  forEachRow(sql, bindings, [&result](const Row& row) {
    if (!row.values().empty()) result = row.values().front();
    return false;
  });
  return result;
}

std::int64_t SQLiteDatabase::count(std::string_view sql, const SQLBindings& bindings) {
  const auto value = scalar(sql, bindings);
  if (!value) return 0;
  const auto* integer = std::get_if<std::int64_t>(&*value);
  return integer == nullptr ? 0 : *integer;
}

std::vector<std::string> SQLiteDatabase::columns(std::string_view sql) {
  const std::lock_guard lock(mutex_);
  const Statement statement(*this, sql);
  return *columnNames(statement);
}

void SQLiteDatabase::transaction(const std::function<void()>& body) {
  between("BEGIN IMMEDIATE", body);
}

void SQLiteDatabase::snapshot(const std::function<void()>& body) { between("BEGIN", body); }

void SQLiteDatabase::between(std::string_view begin, const std::function<void()>& body) {
  run(begin);
  try {
    body();
    run("COMMIT");
  } catch (...) {
    try {
      run("ROLLBACK");
    } catch (const SQLiteError&) {
      // The failure itself may have rolled back; the first error is the one to tell.
    }
    throw;
  }
}

bool SQLiteDatabase::checkpoint() {
  const std::lock_guard lock(mutex_);
  return sqlite3_wal_checkpoint_v2(handle_, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr,
                                   nullptr) == SQLITE_OK;
}

std::pair<bool, std::string> SQLiteDatabase::integrityCheck(bool quick) {
  std::vector<std::string> lines;
  for (const Row& row : query(quick ? "PRAGMA quick_check" : "PRAGMA integrity_check")) {
    if (const auto* text = std::get_if<std::string>(&row.values().front())) lines.push_back(*text);
  }
  const bool ok = lines.size() == 1 && lines.front() == "ok";
  return {ok, join(lines, "; ")};
}

bool SQLiteDatabase::hasFTS5() {
  return count(
             "SELECT count(*) FROM pragma_compile_options WHERE compile_options = 'ENABLE_FTS5'") >
         0;
}

bool SQLiteDatabase::hasTable(std::string_view name) {
  return scalar("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?", {name})
      .has_value();
}

}  // namespace ambervane
