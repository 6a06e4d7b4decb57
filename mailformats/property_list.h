#ifndef AMBERVANE_MAILFORMATS_PROPERTY_LIST_H_
#define AMBERVANE_MAILFORMATS_PROPERTY_LIST_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>

#include "base/bytes.h"

namespace ambervane {

/// What is longer is no property list of a message, and could take the parser long: it compares
/// each attribute of an element with all others.
inline constexpr std::size_t kMaxPropertyListBytes = std::size_t{1} << 18;

/// Dates and data stay the text they are written as.
using PropertyValue = std::variant<bool, std::int64_t, double, std::string>;
using PropertyDictionary = std::map<std::string, PropertyValue, std::less<>>;

/// The simple values of an XML property list whose root is a dictionary; arrays and dictionaries in
/// it, and integers of more than 64 bits, are left out. Absent for anything else. Nothing outside
/// of `xml` is read, and a document with entities of its own is refused.
std::optional<PropertyDictionary> parsePropertyList(BytesView xml);

}  // namespace ambervane

#endif  // AMBERVANE_MAILFORMATS_PROPERTY_LIST_H_
