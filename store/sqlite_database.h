#ifndef AMBERVANE_STORE_SQLITE_DATABASE_H_
#define AMBERVANE_STORE_SQLITE_DATABASE_H_

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "base/bytes.h"
#include "base/date.h"
#include "base/localized_message.h"

struct sqlite3;
struct sqlite3_stmt;

namespace ambervane {

class SQLiteError final : public TranslatableError {
 public:
  struct Open {
    std::string path;
    int code;  ///< an SQLite result code, 0 when the file opens but cannot be read
  };
  struct Prepare {
    std::string sql;
    std::string message;
  };
  struct Step {
    std::string sql;
    std::string message;
    int code;  ///< the extended result code
  };
  struct Misuse {
    std::string text;
  };
  using Reason = std::variant<Open, Prepare, Step, Misuse>;
  explicit SQLiteError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  /// Whether the database could not be written for want of room or because the medium failed; then
  /// nothing further will succeed.
  bool isMediumFailure() const noexcept;
  /// Whether a fenced connection stopped the statement because its time was over.
  bool isOutOfTime() const noexcept;
  /// Whether the file is no database, or a damaged one.
  bool isDamage() const noexcept;
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

struct SQLNull {
  friend bool operator==(const SQLNull&, const SQLNull&) = default;
};
struct SQLBlob {
  Bytes bytes;
  friend bool operator==(const SQLBlob&, const SQLBlob&) = default;
};
/// A value as it comes out of a row.
using SQLValue = std::variant<SQLNull, std::int64_t, double, std::string, SQLBlob>;

/// Bytes to be bound as a BLOB; borrowed for the length of the call.
struct SQLBytes {
  BytesView bytes;
};

/// A parameter of a statement. Text and bytes are borrowed and must outlive the call; a Date binds
/// its seconds as REAL, a bool 0 or 1, an absent optional NULL.
class SQLBinding {
 public:
  SQLBinding(std::nullptr_t) : value_(SQLNull{}) {}
  SQLBinding(bool v) : value_(std::int64_t{v ? 1 : 0}) {}
  SQLBinding(int v) : value_(std::int64_t{v}) {}
  SQLBinding(std::int64_t v) : value_(v) {}
  SQLBinding(std::uint16_t v) : value_(std::int64_t{v}) {}
  SQLBinding(std::size_t v) : value_(static_cast<std::int64_t>(v)) {}
  SQLBinding(double v) : value_(v) {}
  SQLBinding(Date v) : value_(v.seconds) {}
  SQLBinding(const char* v) : value_(std::string_view(v)) {}
  SQLBinding(std::string_view v) : value_(v) {}
  SQLBinding(const std::string& v) : value_(std::string_view(v)) {}
  SQLBinding(SQLBytes v) : value_(v) {}
  template <typename T>
  SQLBinding(const std::optional<T>& v) : value_(SQLNull{}) {
    if (v) *this = SQLBinding(*v);
  }

 private:
  friend class SQLiteDatabase;
  std::variant<SQLNull, std::int64_t, double, std::string_view, SQLBytes> value_;
};
using SQLBindings = std::vector<SQLBinding>;

/// One row of a result, by column name. A missing column reads as NULL.
class Row {
 public:
  Row(std::shared_ptr<const std::vector<std::string>> columns, std::vector<SQLValue> values)
      : columns_(std::move(columns)), values_(std::move(values)) {}
  const std::vector<std::string>& columns() const noexcept { return *columns_; }
  const std::vector<SQLValue>& values() const noexcept { return values_; }
  /// Integers, and reals cut to one; 0 for anything else.
  std::int64_t integer(std::string_view column) const;
  std::optional<std::int64_t> optionalInteger(std::string_view column) const;
  std::string string(std::string_view column) const;  ///< empty for NULL
  std::optional<std::string> optionalString(std::string_view column) const;
  std::optional<double> real(std::string_view column) const;
  std::optional<Date> date(std::string_view column) const;
  std::optional<Bytes> blob(std::string_view column) const;
  bool boolean(std::string_view column) const { return integer(column) != 0; }

 private:
  const SQLValue* find(std::string_view column) const noexcept;
  std::shared_ptr<const std::vector<std::string>> columns_;
  std::vector<SQLValue> values_;
};

/// One SQLite connection. Every call is serialised by a mutex of its own, so any thread may call;
/// statements are prepared once per text and rebound. Every failure is an SQLiteError.
class SQLiteDatabase {
 public:
  /// `readOnly` where we may write promises not to and tidies up behind itself; `neverWriting` is
  /// read-only to the system as well.
  enum class Mode { readWrite, readOnly, neverWriting, immutable };

  /// `label` names the connection in diagnostics. Read-write openings create the file, and set WAL,
  /// full synchronisation, foreign keys and secure deletion. ":memory:" is taken as such.
  SQLiteDatabase(std::filesystem::path path, Mode mode, std::string label);
  ~SQLiteDatabase();
  SQLiteDatabase(const SQLiteDatabase&) = delete;
  SQLiteDatabase& operator=(const SQLiteDatabase&) = delete;

  /// Opens an existing database without writing: read-only where that works, else as immutable,
  /// which a medium that cannot hold a "-shm" file needs.
  static std::unique_ptr<SQLiteDatabase> reading(const std::filesystem::path& path,
                                                 const std::string& label, bool mediumIsReadOnly,
                                                 Mode mode = Mode::readOnly);

  /// Runs any number of statements without parameters or results.
  void execute(const std::string& sql);
  /// Runs one statement and returns how many rows it changed.
  std::int64_t run(std::string_view sql, const SQLBindings& bindings = {});
  /// As `run`, and returns the rowid of the row inserted last, in one go.
  std::int64_t insert(std::string_view sql, const SQLBindings& bindings = {});
  std::vector<Row> query(std::string_view sql, const SQLBindings& bindings = {});
  /// Calls `body` for each row until it returns false. The connection stays taken by this thread;
  /// `body` may call the database.
  void forEachRow(std::string_view sql, const SQLBindings& bindings,
                  const std::function<bool(const Row&)>& body);
  /// The first column of the first row; absent without a row.
  std::optional<SQLValue> scalar(std::string_view sql, const SQLBindings& bindings = {});
  /// The scalar as an integer; 0 for anything else.
  std::int64_t count(std::string_view sql, const SQLBindings& bindings = {});
  /// The names of a statement's columns; it is not run.
  std::vector<std::string> columns(std::string_view sql);
  /// "BEGIN IMMEDIATE", `body`, "COMMIT", or "ROLLBACK" when `body` throws.
  void transaction(const std::function<void()>& body);
  /// Runs `body`, which only reads, over one state of the database, whatever others write
  /// meanwhile. Many short statements are faster for it. Not inside a transaction.
  void snapshot(const std::function<void()>& body);
  /// Moves the write-ahead log into the database file and cuts it to nothing; false when a reader
  /// prevented that.
  bool checkpoint();
  /// SQLite's own check: whether all is well, and its words.
  std::pair<bool, std::string> integrityCheck(bool quick);
  bool hasFTS5();
  bool hasTable(std::string_view name);
  /// From here on only SELECT passes on this connection, over the database's own tables, with no
  /// function that reaches outside it, until `time` is over.
  void fence(std::chrono::milliseconds time);
  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  class Statement;
  struct Fence;
  struct StatementHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const noexcept {
      return std::hash<std::string_view>{}(s);
    }
  };
  void open(Mode mode);
  void configureForWriting();
  /// A statement ready to run; the second is true when the caller must finalise it.
  std::pair<sqlite3_stmt*, bool> prepare(std::string_view sql);
  void bind(sqlite3_stmt* statement, std::string_view sql, const SQLBindings& bindings);
  void between(std::string_view begin, const std::function<void()>& body);
  [[noreturn]] void failStep(std::string_view sql);
  static Row readRow(sqlite3_stmt* statement,
                     const std::shared_ptr<const std::vector<std::string>>& columns);

  std::filesystem::path path_;
  std::string label_;
  std::recursive_mutex mutex_;
  sqlite3* handle_ = nullptr;
  std::shared_ptr<Fence> fence_;
  std::unordered_map<std::string, sqlite3_stmt*, StatementHash, std::equal_to<>> statements_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_SQLITE_DATABASE_H_
