#include "query/filter_field.h"

#include <algorithm>
#include <array>

namespace ambervane {
namespace {

using Kind = FilterFieldKind;
using Op = FilterOperator;

constexpr std::string_view kContent = "Content";
constexpr std::string_view kPeople = "People";
constexpr std::string_view kLocation = "Location";
constexpr std::string_view kAttachments = "Attachments";
constexpr std::string_view kCompliance = "Compliance";
constexpr std::string_view kMessage = "Message";

// In the order of the enumeration, as is the table of operators.
constexpr std::array<FilterFieldFacts, 27> kFields = {{
    {"anyText", "Any text", kContent, Kind::text},
    {"subject", "Subject", kContent, Kind::text},
    {"from", "Sender address", kPeople, Kind::text},
    {"fromName", "Sender name", kPeople, Kind::text},
    {"fromDomain", "Sender domain", kPeople, Kind::text},
    {"recipient", "To", kPeople, Kind::text},
    {"cc", "Cc", kPeople, Kind::text},
    {"participant", "Participant", kPeople, Kind::text},
    {"folder", "Folder", kLocation, Kind::text},
    {"account", "Account", kLocation, Kind::text},
    {"attachmentName", "Attachment name", kAttachments, Kind::text},
    {"attachmentType", "Attachment type", kAttachments, Kind::text},
    {"sentDate", "Date sent", kMessage, Kind::date},
    {"ingestedDate", "Date archived", kMessage, Kind::date},
    {"size", "Size", kMessage, Kind::size},
    {"attachmentCount", "Number of attachments", kAttachments, Kind::number},
    {"hasAttachment", "Has attachment", kAttachments, Kind::boolean},
    {"onLegalHold", "On legal hold", kCompliance, Kind::boolean},
    {"isErased", "Erased", kCompliance, Kind::boolean},
    {"retentionClass", "Retention class", kCompliance, Kind::retentionClass},
    {"expiryDate", "Keep-until date", kCompliance, Kind::date},
    {"messageID", "Message-ID", kMessage, Kind::text},
    {"threadKey", "Conversation", kMessage, Kind::text},
    {"digest", "Digest", kMessage, Kind::text},
    {"tag", "Tag", kMessage, Kind::text},
    {"flag", "Flag", kMessage, Kind::text},
    {"header", "Header field", kMessage, Kind::text},
}};
static_assert(kFields.size() == static_cast<std::size_t>(FilterField::header) + 1);

constexpr std::array<FilterOperatorFacts, 17> kOperators = {{
    {"contains", "contains", true},
    {"notContains", "does not contain", true},
    {"isEqual", "is", true},
    {"isNot", "is not", true},
    {"beginsWith", "begins with", true},
    {"endsWith", "ends with", true},
    {"isEmpty", "is empty", false},
    {"isNotEmpty", "is not empty", false},
    {"before", "is before", true},
    {"after", "is on or after", true},
    {"onDate", "is on", true},
    {"inLastDays", "is in the last days:", true},
    {"notInLastDays", "is not in the last days:", true},
    {"greaterThan", "is greater than", true},
    {"lessThan", "is less than", true},
    {"isTrue", "is true", false},
    {"isFalse", "is false", false},
}};
static_assert(kOperators.size() == static_cast<std::size_t>(FilterOperator::isFalse) + 1);

constexpr auto kAllFields = [] {
  std::array<FilterField, kFields.size()> all{};
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<FilterField>(i);
  return all;
}();

constexpr std::array kForText = {Op::contains,   Op::notContains, Op::isEqual, Op::isNot,
                                 Op::beginsWith, Op::endsWith,    Op::isEmpty, Op::isNotEmpty};
constexpr std::array kForDate = {Op::after,         Op::before,  Op::onDate,    Op::inLastDays,
                                 Op::notInLastDays, Op::isEmpty, Op::isNotEmpty};
constexpr std::array kForNumber = {Op::greaterThan, Op::lessThan, Op::isEqual, Op::isNot};
constexpr std::array kForBoolean = {Op::isTrue, Op::isFalse};
constexpr std::array kForClass = {Op::isEqual, Op::isNot};

template <typename Enum, typename Table>
std::optional<Enum> named(const Table& table, std::string_view name) noexcept {
  const auto found = std::find_if(table.begin(), table.end(),
                                  [name](const auto& row) { return row.name == name; });
  if (found == table.end()) return std::nullopt;
  return static_cast<Enum>(found - table.begin());
}

}  // namespace

const FilterFieldFacts& facts(FilterField field) noexcept {
  return kFields[static_cast<std::size_t>(field)];
}

std::optional<FilterField> filterFieldFromName(std::string_view name) noexcept {
  return named<FilterField>(kFields, name);
}

std::span<const FilterField> allFilterFields() noexcept { return kAllFields; }

const FilterOperatorFacts& facts(FilterOperator op) noexcept {
  return kOperators[static_cast<std::size_t>(op)];
}

std::optional<FilterOperator> filterOperatorFromName(std::string_view name) noexcept {
  return named<FilterOperator>(kOperators, name);
}

std::span<const FilterOperator> availableOperators(FilterFieldKind kind) noexcept {
  switch (kind) {
    case Kind::text:
      return kForText;
    case Kind::date:
      return kForDate;
    case Kind::number:
    case Kind::size:
      return kForNumber;
    case Kind::boolean:
      return kForBoolean;
    case Kind::retentionClass:
      return kForClass;
  }
  return {};
}

}  // namespace ambervane
