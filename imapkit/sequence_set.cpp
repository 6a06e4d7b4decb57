#include "imapkit/sequence_set.h"

#include <algorithm>

#include "base/text.h"

namespace ambervane {

std::string compressSequenceSet(std::span<const std::int64_t> numbers) {
  std::vector<std::int64_t> sorted(numbers.begin(), numbers.end());
  std::sort(sorted.begin(), sorted.end());
  sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
  std::string text;
  for (std::size_t at = 0; at < sorted.size();) {
    std::size_t last = at;
    while (last + 1 < sorted.size() && sorted[last + 1] == sorted[last] + 1) ++last;
    if (!text.empty()) text += ',';
    text += std::to_string(sorted[at]);
    if (last > at) text += ':' + std::to_string(sorted[last]);
    at = last + 1;
  }
  return text;
}

std::optional<std::vector<std::int64_t>> expandSequenceSet(std::string_view text) {
  std::vector<std::int64_t> numbers;
  while (!text.empty()) {
    const std::string_view item = text.substr(0, text.find(','));
    text.remove_prefix(std::min(item.size() + 1, text.size()));
    const std::size_t colon = item.find(':');
    auto first = parseInteger(item.substr(0, colon));
    auto last = colon == item.npos ? first : parseInteger(item.substr(colon + 1));
    if (!first || !last || *first < 1 || *last < 1) continue;
    if (*first > *last) std::swap(first, last);
    const auto count = static_cast<std::uint64_t>(*last - *first) + 1;
    if (count > kMaxSequenceNumbers - numbers.size()) return std::nullopt;
    for (std::uint64_t i = 0; i < count; ++i) {
      numbers.push_back(*first + static_cast<std::int64_t>(i));
    }
  }
  return numbers;
}

}  // namespace ambervane
