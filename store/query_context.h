#ifndef AMBERVANE_STORE_QUERY_CONTEXT_H_
#define AMBERVANE_STORE_QUERY_CONTEXT_H_

#include "query/query_value.h"
#include "store/mail_archive.h"
#include "store/sqlite_database.h"

// Where compiled queries meet the catalog.

namespace ambervane {

inline QueryContext queryContext(MailArchive& archive) {
  return {.supportsFTS = archive.catalog().supportsFTS(),
          .supportsHeaderIndex = archive.catalog().supportsHeaderIndex(),
          .supportsHitIndex = archive.catalog().supportsHitIndex(),
          .now = archive.now()};
}

/// `values` for a statement; their texts are borrowed.
inline SQLBindings bindingsOf(const QueryValues& values) {
  SQLBindings bindings;
  bindings.reserve(values.size());
  for (const QueryValue& value : values) {
    bindings.push_back(std::visit([](const auto& v) { return SQLBinding(v); }, value));
  }
  return bindings;
}

}  // namespace ambervane

#endif  // AMBERVANE_STORE_QUERY_CONTEXT_H_
