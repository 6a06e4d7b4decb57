#ifndef AMBERVANE_QUERY_FILTER_FIELD_H_
#define AMBERVANE_QUERY_FILTER_FIELD_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace ambervane {

/// What a filter can ask about. Declared in the order of display.
enum class FilterField : std::uint8_t {
  anyText,
  subject,
  from,
  fromName,
  fromDomain,
  recipient,
  cc,
  participant,
  folder,
  account,
  attachmentName,
  attachmentType,
  sentDate,
  ingestedDate,
  size,
  attachmentCount,
  hasAttachment,
  onLegalHold,
  isErased,
  retentionClass,
  expiryDate,
  messageID,
  threadKey,
  digest,
  tag,
  flag,
  header,
};

enum class FilterFieldKind : std::uint8_t { text, date, number, size, boolean, retentionClass };

struct FilterFieldFacts {
  std::string_view name;   ///< as stored
  std::string_view label;  ///< in English
  std::string_view group;  ///< the heading it stands under
  FilterFieldKind kind;
};
const FilterFieldFacts& facts(FilterField field) noexcept;
std::optional<FilterField> filterFieldFromName(std::string_view name) noexcept;
/// Every field, in the order of display.
std::span<const FilterField> allFilterFields() noexcept;

enum class FilterOperator : std::uint8_t {
  contains,
  notContains,
  isEqual,
  isNot,
  beginsWith,
  endsWith,
  isEmpty,
  isNotEmpty,
  before,
  after,
  onDate,
  inLastDays,
  notInLastDays,
  greaterThan,
  lessThan,
  isTrue,
  isFalse,
};

struct FilterOperatorFacts {
  std::string_view name;   ///< as stored
  std::string_view label;  ///< in English
  bool needsValue;
};
const FilterOperatorFacts& facts(FilterOperator op) noexcept;
std::optional<FilterOperator> filterOperatorFromName(std::string_view name) noexcept;
/// The operators offered for a kind of field, in the order of display.
std::span<const FilterOperator> availableOperators(FilterFieldKind kind) noexcept;

}  // namespace ambervane

#endif  // AMBERVANE_QUERY_FILTER_FIELD_H_
