#ifndef AMBERVANE_QUERY_QUERY_VALUE_H_
#define AMBERVANE_QUERY_QUERY_VALUE_H_

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "base/date.h"

namespace ambervane {

/// A value to be bound to a "?" of a statement. Dates are seconds since 1970.
using QueryValue = std::variant<std::int64_t, double, std::string>;
using QueryValues = std::vector<QueryValue>;

/// What the compilation of a query needs to know of the catalog and the time.
struct QueryContext {
  bool supportsFTS = false;          ///< the table message_fts exists
  bool supportsHeaderIndex = false;  ///< the table message_header exists
  bool supportsHitIndex = false;     ///< the index idx_message_hit exists
  Date now;
};

}  // namespace ambervane

#endif  // AMBERVANE_QUERY_QUERY_VALUE_H_
