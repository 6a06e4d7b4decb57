#ifndef AMBERVANE_STORE_CATALOG_SCHEMA_H_
#define AMBERVANE_STORE_CATALOG_SCHEMA_H_

namespace ambervane {

/// The version written to `meta`. Page: docs/format/catalog.md.
inline constexpr int kCatalogSchemaVersion = 3;

/// Every table and index but the full-text table; running it again changes nothing.
extern const char* const kCatalogSchema;

}  // namespace ambervane

#endif  // AMBERVANE_STORE_CATALOG_SCHEMA_H_
