#ifndef AMBERVANE_IMAPKIT_SEQUENCE_SET_H_
#define AMBERVANE_IMAPKIT_SEQUENCE_SET_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ambervane {

/// More numbers than a mailbox holds messages: where `expandSequenceSet` gives up.
inline constexpr std::size_t kMaxSequenceNumbers = 10000000;

/// "1:3,7": sorted, each number once, runs of consecutive numbers as ranges (RFC 3501 section 9,
/// sequence-set).
std::string compressSequenceSet(std::span<const std::int64_t> numbers);
/// The numbers of a set, in its order. Items that cannot be read are skipped, "*" among them; a
/// range is taken in either direction. Absent when there are more than `kMaxSequenceNumbers`.
std::optional<std::vector<std::int64_t>> expandSequenceSet(std::string_view text);

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_SEQUENCE_SET_H_
