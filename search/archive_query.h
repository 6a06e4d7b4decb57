#ifndef AMBERVANE_SEARCH_ARCHIVE_QUERY_H_
#define AMBERVANE_SEARCH_ARCHIVE_QUERY_H_

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "base/localized_message.h"
#include "store/mail_archive.h"

namespace ambervane {

/// Statements of a user's own over the catalog, reading only. Two fences stand one behind the
/// other: a look at the text, and a connection on which nothing but SELECT passes.
namespace ArchiveQuery {

class Failure final : public TranslatableError {
 public:
  struct NotASelect {
    std::string word;  ///< what the statement begins with
  };
  struct Forbidden {
    std::string word;
  };
  struct MultipleStatements {};
  struct TimedOut {
    std::chrono::milliseconds time;
  };
  using Reason = std::variant<NotASelect, Forbidden, MultipleStatements, TimedOut>;
  explicit Failure(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// Everything as text; NULL is empty and a BLOB is in hexadecimal digits.
struct Result {
  std::vector<std::string> columns;
  std::vector<std::vector<std::string>> rows;
  bool truncated = false;  ///< there were more rows, or more text than fits into memory
  double elapsed = 0;      ///< seconds
};

/// The one statement in `sql`, without blanks around it and its semicolon. Throws Failure unless it
/// is a SELECT that names nothing that can write or reach outside the catalog. Errs towards
/// refusing: a forbidden word between quotes is refused as well.
std::string check(std::string_view sql);

}  // namespace ArchiveQuery

inline constexpr std::chrono::milliseconds kQueryTime{60'000};

/// Runs a checked statement on a connection of its own and journals it; a journal that cannot be
/// written does not keep the result back. `by` is who asks. Throws ArchiveQuery::Failure and
/// SQLiteError, the latter with the engine's text.
ArchiveQuery::Result runQuery(MailArchive& archive, const std::string& sql, std::size_t limit,
                              const std::string& by, std::chrono::milliseconds time = kQueryTime);

struct CatalogTable {
  std::string name;
  std::vector<std::string> columns;
};
/// The tables of the catalog, by name. Throws SQLiteError.
std::vector<CatalogTable> catalogSchema(MailArchive& archive);

}  // namespace ambervane

#endif  // AMBERVANE_SEARCH_ARCHIVE_QUERY_H_
