#include "search/archive_query.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>

#include "base/text.h"

namespace ambervane {
namespace {

constexpr const char* kLabel = "ambervane.query";
constexpr std::size_t kJournalledCharacters = 500;
/// Text of a result that is held at most.
constexpr std::size_t kMaxResultBytes = std::size_t{256} << 20;

constexpr std::array<std::string_view, 19> kForbidden = {
    "attach", "detach",   "pragma",    "vacuum",  "reindex", "analyze", "insert",
    "update", "delete",   "drop",      "create",  "alter",   "replace", "begin",
    "commit", "rollback", "savepoint", "release", "trigger"};

bool isWordByte(char c) { return (c >= 'a' && c <= 'z') || c == '_'; }

/// Whether `word` stands in `text` with no letter or underscore beside it.
bool containsWord(std::string_view text, std::string_view word) {
  for (std::size_t at = text.find(word); at != std::string_view::npos;
       at = text.find(word, at + 1)) {
    const std::size_t end = at + word.size();
    const bool beginsWord = at == 0 || !isWordByte(text[at - 1]);
    const bool endsWord = end == text.size() || !isWordByte(text[end]);
    if (beginsWord && endsWord) return true;
  }
  return false;
}

/// The first word, or what stands there in place of one up to a blank.
std::string_view firstWord(std::string_view statement) {
  std::size_t end = 0;
  while (end < statement.size() && (isWordByte(statement[end]) || isAsciiDigit(statement[end]))) {
    ++end;
  }
  if (end > 0) return statement.substr(0, end);
  while (end < statement.size() && !isAsciiSpace(statement[end])) ++end;
  return statement.substr(0, end);
}

std::string textOf(const SQLValue& value) {
  struct Text {
    std::string operator()(SQLNull) const { return {}; }
    std::string operator()(std::int64_t v) const { return std::to_string(v); }
    std::string operator()(double v) const { return decimalNumber(v); }
    std::string operator()(const std::string& v) const { return repairedUtf8(v); }
    std::string operator()(const SQLBlob& v) const { return hexEncode(v.bytes); }
  };
  return std::visit(Text{}, value);
}

std::unique_ptr<SQLiteDatabase> fencedConnection(MailArchive& archive,
                                                 std::chrono::milliseconds time) {
  auto database = SQLiteDatabase::reading(archive.url() / "catalog.sqlite", kLabel,
                                          archive.storage() == StorageAccess::readOnlyMedium,
                                          SQLiteDatabase::Mode::neverWriting);
  database->fence(time);
  return database;
}

}  // namespace

namespace ArchiveQuery {

LocalizedMessage Failure::message() const {
  struct Words {
    LocalizedMessage operator()(const NotASelect& r) const {
      return {
          "Only SELECT is allowed here; this statement starts with %@. The catalog is an index "
          "over the archive, and an archive that can be edited by a typed statement is not an "
          "archive.",
          {printable(r.word)}};
    }
    LocalizedMessage operator()(const Forbidden& r) const {
      return {
          "%@ is not available here. It can reach outside the catalog or change how the database "
          "behaves, and this connection exists only to read.",
          {r.word}};
    }
    LocalizedMessage operator()(const MultipleStatements& /*r*/) const {
      return {
          "One statement at a time. Several separated by semicolons cannot be checked as a whole.",
          {}};
    }
    LocalizedMessage operator()(const TimedOut& r) const {
      return {"The statement was stopped, because it was not done after %@ seconds.",
              {decimalNumber(static_cast<double>(r.time.count()) / 1000)}};
    }
  };
  return std::visit(Words{}, reason_);
}

std::string check(std::string_view sql) {
  std::string_view statement = trim(sql);
  if (statement.ends_with(';')) statement.remove_suffix(1);
  std::optional<std::string_view> only;
  for (const std::string_view piece : split(statement, ';')) {
    if (trim(piece).empty()) continue;
    if (only) throw Failure(Failure::MultipleStatements{});
    only = trim(piece);
  }
  if (!only) throw Failure(Failure::NotASelect{"nothing"});
  const std::string lower = lowercase(*only);
  const std::string word(firstWord(lower));
  if (word != "select" && word != "with") throw Failure(Failure::NotASelect{word});
  for (const std::string_view forbidden : kForbidden) {
    if (containsWord(lower, forbidden)) throw Failure(Failure::Forbidden{std::string(forbidden)});
  }
  return std::string(*only);
}

}  // namespace ArchiveQuery

ArchiveQuery::Result runQuery(MailArchive& archive, const std::string& sql, std::size_t limit,
                              const std::string& by, std::chrono::milliseconds time) {
  const auto start = std::chrono::steady_clock::now();
  const std::string statement = ArchiveQuery::check(sql);
  ArchiveQuery::Result result;
  std::size_t bytes = 0;
  try {
    const auto database = fencedConnection(archive, time);
    result.columns = database->columns(statement);
    database->forEachRow(statement, {}, [&](const Row& row) {
      if (result.rows.size() >= limit || bytes > kMaxResultBytes) {
        result.truncated = true;
        return false;
      }
      std::vector<std::string> cells;
      cells.reserve(row.values().size());
      for (const SQLValue& value : row.values()) {
        cells.push_back(textOf(value));
        bytes += cells.back().size();
      }
      result.rows.push_back(std::move(cells));
      return true;
    });
  } catch (const SQLiteError& error) {
    if (error.isOutOfTime()) throw ArchiveQuery::Failure(ArchiveQuery::Failure::TimedOut{time});
    throw;
  }
  try {
    archive.journal().append(
        AuditAction::searchPerformed, "sql",
        {{"statement", std::string(prefixCharacters(statement, kJournalledCharacters))},
         {"rows", std::to_string(result.rows.size())},
         {"truncated", result.truncated ? "true" : "false"}},
        by);
  } catch (const TranslatableError&) {
    // As with a search, what was found is shown all the same.
  }
  result.elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return result;
}

std::vector<CatalogTable> catalogSchema(MailArchive& archive) {
  const auto database = fencedConnection(archive, kQueryTime);
  std::vector<CatalogTable> tables;
  for (const Row& row : database->query(
           "SELECT name FROM sqlite_master\n WHERE type = 'table' AND name NOT LIKE 'sqlite_%'\n "
           "ORDER BY name")) {
    CatalogTable table{row.string("name"), {}};
    std::string quoted;
    for (const char c : table.name) quoted += c == '"' ? "\"\"" : std::string(1, c);
    for (const Row& column : database->query("PRAGMA table_info(\"" + quoted + "\")")) {
      table.columns.push_back(column.string("name"));
    }
    tables.push_back(std::move(table));
  }
  return tables;
}

}  // namespace ambervane
