#include "search/table_export.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/calendar.h"
#include "base/file.h"
#include "base/text.h"
#include "query/value_reading.h"
#include "search/search_archive.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;
using TableExport::Format;

/// Rows fetched by one statement.
constexpr std::size_t kBlockRows = 500;

struct Column {
  std::string_view name, expression;
};
constexpr std::array<Column, 18> kColumns = {{
    {"id", "m.id"},
    {"sha256", "m.sha256"},
    {"message_id", "m.message_id"},
    {"sent_at", "strftime('%Y-%m-%dT%H:%M:%SZ', m.sent_at, 'unixepoch')"},
    {"from_name", "m.from_name"},
    {"from_address", "m.from_addr"},
    {"to_addresses", "m.to_addrs"},
    {"cc_addresses", "m.cc_addrs"},
    {"subject", "m.subject"},
    {"size_bytes", "m.size"},
    {"stored_bytes", "m.stored_size"},
    {"attachment_count", "m.attachment_count"},
    {"retention_class", "m.retention_class"},
    {"expires_at", "strftime('%Y-%m-%dT%H:%M:%SZ', m.expires_at, 'unixepoch')"},
    {"erased", "m.erased"},
    {"mailboxes",
     "(SELECT GROUP_CONCAT(f.path, ' | ') FROM message_folder mf JOIN folder f ON f.id = "
     "mf.folder_id WHERE mf.message_id = m.id AND mf.removed_at IS NULL)"},
    {"tags",
     "(SELECT GROUP_CONCAT(t.name, ' | ') FROM message_tag mt JOIN tag t ON t.id = mt.tag_id WHERE "
     "mt.message_id = m.id)"},
    {"attachments",
     "(SELECT GROUP_CONCAT(a.filename, ' | ') FROM attachment a WHERE a.message_id = m.id AND "
     "a.is_inline = 0)"},
}};

/// The statement that fetches `count` rows.
std::string blockSql(std::size_t count) {
  std::string sql = "SELECT ";
  for (const Column& column : kColumns) {
    if (&column != &kColumns.front()) sql += ", ";
    sql += std::string(column.expression) + " AS \"" + std::string(column.name) + "\"";
  }
  sql += " FROM message m WHERE m.id IN (";
  for (std::size_t i = 0; i < count; ++i) sql += i == 0 ? "?" : ",?";
  return sql + ")";
}

/// A file that takes its name only when it is whole.
class OutputFile {
 public:
  explicit OutputFile(const fs::path& path)
      : path_(path), temporary_(path.native() + ".tmp-" + std::to_string(::getpid())) {
    std::error_code ignored;
    const auto status = fs::status(path, ignored);
    // A pipe or a device is written to as it is.
    isDirect_ = fs::exists(status) && !fs::is_regular_file(status);
    file_.emplace(AppendFile::open(isDirect_ ? path_ : temporary_));
    if (!isDirect_) file_->truncate(0);
  }
  ~OutputFile() {
    std::error_code ignored;
    if (!isDirect_ && !finished_) fs::remove(temporary_, ignored);
  }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void append(const std::string& text) {
    file_->append(text);
    bytes_ += static_cast<std::int64_t>(text.size());
  }
  void finish() {
    if (!isDirect_) {
      file_->sync();
      std::error_code error;
      fs::rename(temporary_, path_, error);
      if (error) throw FileError(FileError::Action::rename, path_, error.value());
      syncFolder(path_.parent_path());
    }
    finished_ = true;
  }
  std::int64_t bytes() const noexcept { return bytes_; }

 private:
  const fs::path path_, temporary_;
  std::optional<AppendFile> file_;
  std::int64_t bytes_ = 0;
  bool isDirect_ = false;
  bool finished_ = false;
};

/// The rows of one format.
class TableText {
 public:
  TableText(Format format, std::string tableName)
      : format_(format), tableName_(std::move(tableName)) {}

  std::string prologue(const ArchiveManifest& manifest, Date now) const {
    std::vector<std::string> names;
    for (const Column& column : kColumns) names.emplace_back(column.name);
    if (format_ != Format::sql) return record(names);
    std::string text =
        "-- Ambervane export of " + printable(manifest.name) + " [" +
        printable(manifest.archiveID) + "]\n-- " + iso8601(now) +
        "\n-- Metadata only: the messages themselves stay in the archive. `sha256` "
        "ties\n-- each row to the record it describes.\nCREATE TABLE IF NOT EXISTS `" +
        tableName_ + "` (\n";
    for (const std::string& name : names) {
      text += "  `" + name + "` TEXT" + (name == names.back() ? "\n" : ",\n");
    }
    return text + ");\n";
  }

  std::string record(const std::vector<std::string>& values) const {
    std::vector<std::string> cells;
    cells.reserve(values.size());
    for (const std::string& value : values) cells.push_back(TableExport::escape(value, format_));
    switch (format_) {
      case Format::csv:
        return join(cells, ",") + "\r\n";
      case Format::tsv:
        return join(cells, "\t") + "\n";
      case Format::sql:
        break;
    }
    std::vector<std::string> names;
    for (const Column& column : kColumns) names.push_back("`" + std::string(column.name) + "`");
    return "INSERT INTO " + tableName_ + " (" + join(names, ", ") + ") VALUES (" +
           join(cells, ", ") + ");\n";
  }

 private:
  const Format format_;
  const std::string tableName_;
};

/// The rows of some messages as text, in the order of `ids`.
std::string blockText(SQLiteDatabase& database, const TableText& text,
                      const std::vector<std::int64_t>& ids, std::int64_t& rows) {
  const SQLBindings bindings(ids.begin(), ids.end());
  std::unordered_map<std::int64_t, std::string> records;
  database.forEachRow(blockSql(ids.size()), bindings, [&](const Row& row) {
    std::vector<std::string> values;
    values.reserve(kColumns.size());
    for (const Column& column : kColumns) {
      values.push_back(repairedUtf8(row.string(column.name)));
    }
    records.emplace(row.integer("id"), text.record(values));
    return true;
  });
  std::string block;
  for (const std::int64_t id : ids) {
    const auto found = records.find(id);
    if (found == records.end()) continue;
    block += found->second;
    ++rows;
  }
  return block;
}

}  // namespace

namespace TableExport {

namespace {

constexpr std::array<FormatFacts, 3> kFormats = {{
    {"csv", "CSV — commas, for a spreadsheet"},
    {"tsv", "Tab-delimited text"},
    {"sql", "SQL — INSERT statements for another database"},
}};

}  // namespace

const FormatFacts& facts(Format format) noexcept {
  return kFormats.at(static_cast<std::size_t>(format));
}

std::optional<Format> formatFromName(std::string_view name) noexcept {
  for (std::size_t i = 0; i < kFormats.size(); ++i) {
    if (kFormats.at(i).name == name) return static_cast<Format>(i);
  }
  return std::nullopt;
}

std::string neutralised(std::string_view value) {
  constexpr std::string_view kDangerous = "=+-@\t\r";
  const bool isFormula = !value.empty() && kDangerous.find(value.front()) != std::string_view::npos;
  return (isFormula && !readNumber(value) ? "'" : "") + std::string(value);
}

std::string escape(std::string_view value, Format format) {
  std::string out;
  if (format == Format::sql) {
    out = "'";
    for (const char c : value) out += c == '\'' ? "''" : std::string(1, c);
    return out + "'";
  }
  const std::string safe = neutralised(value);
  if (format == Format::csv) {
    if (safe.find_first_of(",\"\r\n") == std::string::npos) return safe;
    out = "\"";
    for (const char c : safe) out += c == '"' ? "\"\"" : std::string(1, c);
    return out + "\"";
  }
  for (std::size_t at = 0; at < safe.size(); ++at) {
    const char c = safe[at];
    if (c == '\r' && at + 1 < safe.size() && safe[at + 1] == '\n') continue;
    out += c == '\t' || c == '\r' || c == '\n' ? ' ' : c;
  }
  return out;
}

}  // namespace TableExport

TableExport::Outcome exportTable(
    MailArchive& archive, const fs::path& to, Format format, const SearchQuery& query,
    const std::string& tableName,
    const std::function<void(std::int64_t done, std::int64_t total)>& progress) {
  SearchQuery selection = query;
  selection.includeErased = false;
  const auto ids = selectedMessageIDs(archive, selection);
  const TableText text(format, tableName);
  TableExport::Outcome outcome;
  outcome.url = to;
  OutputFile file(to);
  file.append(text.prologue(archive.manifest(), archive.now()));
  const auto total = static_cast<std::int64_t>(ids.size());
  for (std::size_t done = 0; done < ids.size();) {
    const std::size_t end = std::min(done + kBlockRows, ids.size());
    const auto at = [&ids](std::size_t i) { return ids.begin() + static_cast<std::ptrdiff_t>(i); };
    file.append(blockText(archive.catalog().database(), text, {at(done), at(end)}, outcome.rows));
    done = end;
    if (progress) progress(static_cast<std::int64_t>(done), total);
  }
  file.finish();
  outcome.bytes = file.bytes();
  if (archive.journal().isWritable()) {
    archive.journal().append(AuditAction::messageExported, std::nullopt,
                             {{"format", std::string(TableExport::facts(format).name)},
                              {"rows", std::to_string(outcome.rows)},
                              {"file", pathText(to)},
                              {"table", tableName}});
  }
  return outcome;
}

}  // namespace ambervane
