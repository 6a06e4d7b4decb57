#ifndef AMBERVANE_SEARCH_TABLE_EXPORT_H_
#define AMBERVANE_SEARCH_TABLE_EXPORT_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "query/search_query.h"
#include "store/mail_archive.h"

namespace ambervane {

/// The message index as a file for a spreadsheet or another database.
namespace TableExport {

enum class Format : std::uint8_t { csv, tsv, sql };

struct FormatFacts {
  std::string_view name;
  std::string_view label;
};
const FormatFacts& facts(Format format) noexcept;
std::optional<Format> formatFromName(std::string_view name) noexcept;

/// A value that a spreadsheet would take for a formula gets an apostrophe in front; numbers stay.
std::string neutralised(std::string_view value);
/// A value as it stands in a file: for csv and tsv neutralised, for sql a literal.
std::string escape(std::string_view value, Format format);

struct Outcome {
  std::filesystem::path url;
  std::int64_t rows = 0;
  std::int64_t bytes = 0;
};

}  // namespace TableExport

/// Writes a row for each message `query` selects, in its order, erased ones left out; an existing
/// file is replaced once the new one is whole. Journalled, where the journal can be written.
/// `progress` may be empty. Throws FileError, SQLiteError.
TableExport::Outcome exportTable(
    MailArchive& archive, const std::filesystem::path& to, TableExport::Format format,
    const SearchQuery& query, const std::string& tableName,
    const std::function<void(std::int64_t done, std::int64_t total)>& progress);

}  // namespace ambervane

#endif  // AMBERVANE_SEARCH_TABLE_EXPORT_H_
