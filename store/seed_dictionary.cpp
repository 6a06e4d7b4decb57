#include "store/seed_dictionary.h"

#include <algorithm>

#include "resources/seed_dictionary.h"

namespace ambervane {

BytesView seedDictionary() {
  const BytesView text = resources::seedDictionary();
  return text.substr(text.size() - std::min(text.size(), kDictionaryBytes));
}

}  // namespace ambervane
