#ifndef AMBERVANE_STORE_SEED_DICTIONARY_H_
#define AMBERVANE_STORE_SEED_DICTIONARY_H_

#include <cstddef>

#include "base/bytes.h"

namespace ambervane {

/// The size the archive's dictionaries are cut to: all that deflate can look back on.
inline constexpr std::size_t kDictionaryBytes = 32768;

/// What a new archive starts with until it has mail of its own to learn from: header forms and
/// phrases of everyday mail, at most `kDictionaryBytes`. Lives as long as the process.
BytesView seedDictionary();

}  // namespace ambervane

#endif  // AMBERVANE_STORE_SEED_DICTIONARY_H_
