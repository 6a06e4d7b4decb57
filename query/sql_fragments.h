#ifndef AMBERVANE_QUERY_SQL_FRAGMENTS_H_
#define AMBERVANE_QUERY_SQL_FRAGMENTS_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "query/query_value.h"

// Conditions that queries and filters share. Each appends what its "?" stand for to `params`.

namespace ambervane {

/// SQLite refuses longer patterns (SQLITE_MAX_LIKE_PATTERN_LENGTH).
inline constexpr std::size_t kMaxLikePatternBytes = 50000;

/// Whether message "m" is on an unreleased hold.
inline constexpr std::string_view kOnHold =
    "EXISTS (SELECT 1 FROM message_hold mh JOIN hold h ON h.id = mh.hold_id WHERE mh.message_id = "
    "m.id AND h.released_at IS NULL)";

/// `value` for use in a pattern of LIKE with ESCAPE '\'.
std::string likeEscaped(std::string_view value);
/// Finds `value` anywhere.
std::string containing(std::string_view value);

/// "<column> LIKE ? ESCAPE '\'". LIKE tells ASCII letters of either case no apart. A pattern longer
/// than `kMaxLikePatternBytes` finds nothing: the condition is "0".
std::string like(std::string_view column, std::string pattern, QueryValues& params);

/// What stands in for full text: `text` as it is in subject, participants or snippet.
std::string textLike(std::string_view text, QueryValues& params);

/// The digests that begin with `prefix`, lower-case hexadecimal, as a range of the index.
std::string digestRange(std::string prefix, QueryValues& params);

}  // namespace ambervane

#endif  // AMBERVANE_QUERY_SQL_FRAGMENTS_H_
