#include "store/lzfse_matches.h"

#include <algorithm>
#include <bit>

#include "store/lzfse_format.h"

namespace ambervane::lzfse {
namespace {

constexpr std::size_t kMinHashBits = 10;
constexpr std::size_t kMaxHashBits = 17;
/// Bits of a literal, of a match's symbols without the extra bits of its distance, and of a match
/// at the distance of the one before. The usual values; being exact about them gains nothing.
constexpr std::uint32_t kLiteralBits = 5;
constexpr std::uint32_t kMatchBits = 8;
constexpr std::uint32_t kRepeatedMatchBits = 6;
/// Longer matches are found in parts.
constexpr std::size_t kMaxFound = std::size_t{1} << 20;

int gainOf(std::uint32_t length, std::uint32_t matchBits) noexcept {
  return static_cast<int>(length * kLiteralBits) - static_cast<int>(matchBits);
}

}  // namespace

MatchFinder::MatchFinder(BytesView data)
    : data_(data), hashedEnd_(data.size() < 8 ? 0 : data.size() - 7) {
  const std::size_t window = std::bit_ceil(std::min<std::size_t>(data.size(), kMaxDistance) + 1);
  const auto hashBits = std::clamp<std::size_t>(
      static_cast<std::size_t>(std::bit_width(window)) - 1, kMinHashBits, kMaxHashBits);
  hashShift_ = static_cast<int>(64 - hashBits);
  newest_.resize(std::size_t{1} << hashBits);
  previous_.resize(window);
  previousMask_ = window - 1;
}

std::size_t MatchFinder::hash(std::size_t position) const noexcept {
  // Of five bytes: four alike are so common in text that they fill the chains, and gain little.
  return (load64(data_.data() + position) << 24) * 0x9e3779b97f4a7c15 >> hashShift_;
}

void MatchFinder::insertUpTo(std::size_t position) noexcept {
  for (const std::size_t end = std::min(position, hashedEnd_); inserted_ < end; ++inserted_) {
    std::uint32_t& newest = newest_[hash(inserted_)];
    previous_[inserted_ & previousMask_] = newest;
    newest = static_cast<std::uint32_t>(inserted_ + 1);
  }
}

std::uint32_t MatchFinder::commonLength(std::size_t position, std::size_t earlier) const noexcept {
  const char* const data = data_.data();
  const std::size_t start = position;
  const std::size_t end = std::min(data_.size(), position + kMaxFound);
  for (; position + 8 <= end; position += 8, earlier += 8) {
    const std::uint64_t difference = load64(data + position) ^ load64(data + earlier);
    if (difference != 0) {
      return static_cast<std::uint32_t>(position - start) +
             static_cast<std::uint32_t>(std::countr_zero(difference)) / 8;
    }
  }
  while (position < end && data[position] == data[earlier]) ++position, ++earlier;
  return static_cast<std::uint32_t>(position - start);
}

Match MatchFinder::find(std::size_t position, std::uint32_t repeated, int floor,
                        int tries) const noexcept {
  Match best;
  if (position >= hashedEnd_) return best;
  best.gain = floor;
  const char* const here = data_.data() + position;
  if (repeated != 0 && load32(here) == load32(here - repeated)) {
    const std::uint32_t length = commonLength(position, position - repeated);
    const int gain = gainOf(length, kRepeatedMatchBits);
    if (gain > best.gain) best = {length, repeated, gain};
    if (length >= kLongEnough) return best;
  }
  // What wins must be longer than any at a smaller distance and than the gain to beat; so the last
  // four bytes of that length are compared before all others.
  const std::uint32_t beaten =
      std::max(best.length, (static_cast<std::uint32_t>(best.gain) + kMatchBits) / kLiteralBits);
  std::size_t tail = std::max(beaten, 3U) - 3;
  const std::size_t left = data_.size() - position;
  std::size_t earlier = newest_[hash(position)];
  for (; tries > 0 && earlier != 0 && tail + 4 <= left; --tries) {
    const std::size_t candidate = earlier - 1;
    const auto distance = static_cast<std::uint32_t>(position - candidate);
    if (distance > kMaxDistance) break;
    if (load32(here + tail) == load32(data_.data() + candidate + tail)) {
      const std::uint32_t length = commonLength(position, candidate);
      const auto distanceBits = static_cast<std::uint32_t>(std::bit_width(distance));
      const int gain = gainOf(length, kMatchBits + distanceBits);
      if (gain > best.gain) {
        best = {length, distance, gain};
        if (length >= kLongEnough) break;
        tail = std::max(length, 3U) - 3;
      }
    }
    const std::size_t older = previous_[candidate & previousMask_];
    if (older >= earlier) break;  // a position one window later has taken the place
    earlier = older;
  }
  return best;
}

}  // namespace ambervane::lzfse
