#include <fmt/format.h>

#include <algorithm>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/display_columns.h"
#include "cli/message_list.h"
#include "query/search_query_parser.h"
#include "search/archive_query.h"
#include "search/table_export.h"

namespace ambervane {
namespace {

using TableExport::Format;

constexpr std::size_t kMaxRows = 5000;
/// A wider cell is cut, so that one long text does not take the table apart.
constexpr std::size_t kMaxCellColumns = 100;

std::string cellText(const std::string& value) {
  const std::string text = printable(value);
  if (displayWidth(text) <= kMaxCellColumns) return text;
  return std::string(cutToWidth(text, kMaxCellColumns - 1)) + "…";
}

void printAligned(const ArchiveQuery::Result& result, std::ostream& out) {
  std::vector<std::vector<std::string>> lines = {result.columns};
  lines.insert(lines.end(), result.rows.begin(), result.rows.end());
  std::vector<std::size_t> widths(result.columns.size());
  for (auto& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) {
      line[i] = cellText(line[i]);
      widths[i] = std::max(widths[i], displayWidth(line[i]));
    }
  }
  std::vector<std::string> rule;
  for (const std::size_t width : widths) rule.emplace_back(width, '-');
  lines.insert(lines.begin() + 1, std::move(rule));
  for (const auto& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) {
      out << (i + 1 < line.size() ? padded(line[i], widths[i]) + "  " : line[i]);
    }
    out << "\n";
  }
}

void printSeparated(const ArchiveQuery::Result& result, Format format, std::ostream& out) {
  const auto print = [&](const std::vector<std::string>& line) {
    for (std::size_t i = 0; i < line.size(); ++i) {
      if (i > 0) out << (format == Format::csv ? ',' : '\t');
      out << TableExport::escape(line[i], format);
    }
    out << "\n";
  };
  print(result.columns);
  for (const auto& row : result.rows) print(row);
}

void printSchema(MailArchive& archive, std::ostream& out) {
  for (const CatalogTable& table : catalogSchema(archive)) {
    out << printable(table.name) << ": " << printable(join(table.columns, ", ")) << "\n";
  }
}

void printResult(const ArchiveQuery::Result& result, const std::string& format, std::ostream& out) {
  if (format == "csv") {
    printSeparated(result, Format::csv, out);
  } else if (format == "tsv") {
    printSeparated(result, Format::tsv, out);
  } else {
    printAligned(result, out);
  }
  out << fmt::format("{} row{} in {:.0f} ms{}\n", result.rows.size(),
                     result.rows.size() == 1 ? "" : "s", result.elapsed * 1000,
                     result.truncated ? " (truncated)" : "");
}

/// Refuses a file that would take the place of a part of the archive.
void requireOutside(const MailArchive& archive, const std::filesystem::path& file) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  const fs::path root = fs::weakly_canonical(archive.url(), ignored);
  const fs::path within = fs::weakly_canonical(file, ignored).lexically_relative(root);
  const std::string first = within.empty() ? ".." : within.begin()->native();
  if (first == ".." || first == "export") return;
  throw CLIError::usage(printable(file.native()) +
                        " lies inside the archive; choose a place outside or in its folder "
                        "“export”");
}

}  // namespace

int queryCommand(const Arguments& arguments, Console& console) {
  const auto sql = arguments.option("sql");
  const bool wantsSchema = arguments.has("schema");
  if (!sql && !wantsSchema) {
    if (arguments.positional.empty()) throw CLIError::usage("missing archive path");
    throw CLIError::usage("--sql \"SELECT …\" is required, or --schema to see the tables");
  }
  const auto archive = openArchive(arguments, console, OpenMode::readOnly);
  if (wantsSchema) {
    printSchema(*archive, console.out);
  } else {
    printResult(runQuery(*archive, *sql, kMaxRows, AuditJournal::defaultActor()),
                arguments.option("format").value_or("table"), console.out);
    noteUnrecorded(*archive, console.out);
  }
  archive->close();
  return kExitSuccess;
}

int tableCommand(const Arguments& arguments, Console& console) {
  const auto out = arguments.option("out");
  if (!out) throw CLIError::usage("--out <file> is required");
  const auto format = TableExport::formatFromName(arguments.option("format").value_or("csv"));
  if (!format) throw CLIError::usage("--format takes csv, tsv or sql");
  const std::filesystem::path path = standardizedPath(*out);
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  requireOutside(*archive, path);
  TableExport::Outcome outcome;
  {
    ProgressLine line(console);
    outcome = exportTable(*archive, path, *format,
                          SearchQueryParser::parse(arguments.option("query").value_or("")),
                          "message", [&line](std::int64_t done, std::int64_t total) {
                            if (line.isDue()) line.show(fmt::format("{}/{} rows", done, total));
                          });
  }
  console.out << "Wrote " << outcome.rows << " rows to " << printable(path.native()) << "\n"
              << "The bodies stay in the archive; `sha256` ties each row to its record.\n";
  noteUnrecorded(*archive, console.out);
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
