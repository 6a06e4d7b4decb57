#ifndef AMBERVANE_STORE_HEADER_INDEX_H_
#define AMBERVANE_STORE_HEADER_INDEX_H_

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "mailcore/header_set.h"

namespace ambervane {

inline constexpr std::size_t kMaximumIndexedHeaders = 500;     ///< rows a message
inline constexpr std::size_t kMaximumHeaderNameLength = 200;   ///< characters
inline constexpr std::size_t kMaximumHeaderValueLength = 500;  ///< characters
inline constexpr std::size_t kMaximumRepeatsOfAHeader = 50;    ///< rows of one name

/// Lower-case names and decoded values of the fields worth filtering on, in the message's order. A
/// signature's value is empty: only that the field is there is of use.
std::vector<std::pair<std::string, std::string>> indexedHeaders(const HeaderSet& headers);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_HEADER_INDEX_H_
