// What a codec of the deflate family can save is bounded by two things: how uneven the bytes are
// (its Huffman codes) and how much repeats (its matches). Both are estimated here, the first
// exactly, the second from above, over all of the data and not over a sample: a file of pictures
// with a page of text in its middle is found out.

#include "store/compressibility.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace ambervane {
namespace {

/// Half of what makes a compressed record worth keeping.
constexpr double kHopelessShare = 0.015;
constexpr std::size_t kBlockBytes = 16384;
/// Repeats of at least five bytes are found if near, far ones if they are longer than `kFarStep`
/// and a hash.
constexpr int kNearBits = 13;
constexpr int kMaxFarBits = 16;
constexpr std::size_t kFarStep = 32;
constexpr std::size_t kFarProbeStep = 4;
/// A match costs about this many bytes itself.
constexpr std::size_t kMatchCost = 3;

std::uint64_t load64(const char* bytes) noexcept {
  std::uint64_t value = 0;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

/// Bytes that an ideal code for the single bytes of `block` would save.
double unevenness(BytesView block) {
  std::array<std::array<std::uint32_t, 256>, 2> counts{};
  std::size_t i = 0;
  for (; i + 1 < block.size(); i += 2) {
    ++counts[0][static_cast<unsigned char>(block[i])];
    ++counts[1][static_cast<unsigned char>(block[i + 1])];
  }
  if (i < block.size()) ++counts[0][static_cast<unsigned char>(block[i])];
  const double total = static_cast<double>(block.size());
  double bits = 0;
  for (std::size_t value = 0; value < 256; ++value) {
    const double count = counts[0][value] + counts[1][value];
    if (count > 0) bits -= count * std::log2(count / total);
  }
  return total - bits / 8;
}

/// Finds repeated runs. The tables keep what stood at a position beside it, so that a look at them
/// does not touch the old data.
class RepeatCounter {
 public:
  explicit RepeatCounter(BytesView data)
      : data_(data),
        farBits_(std::clamp(static_cast<int>(std::bit_width(data.size() / kFarStep)) + 1, 8,
                            kMaxFarBits)),
        far_(std::size_t{1} << farBits_) {}

  /// About what matches that begin before `end` save. To be called with growing ends.
  std::size_t savedUpTo(std::size_t end) {
    std::size_t saved = 0;
    end = std::min(end, data_.size() - std::min<std::size_t>(data_.size(), 8));
    while (position_ < end) {
      std::size_t length = probeNear();
      if (position_ % kFarProbeStep == 0) length = std::max(length, probeFar());
      if (length > kMatchCost + 1) {
        saved += length - kMatchCost;
        position_ += length;
      } else {
        near_[hashOf(load64(data_.data() + position_ + 1) << 32, kNearBits)] = entry(position_ + 1);
        position_ += 2;
      }
    }
    return saved;
  }

 private:
  struct Entry {
    std::uint32_t bytes = 0;  ///< four from the position
    std::uint32_t position = 0;
  };

  static std::size_t hashOf(std::uint64_t bytes, int bits) noexcept {
    return static_cast<std::size_t>((bytes * 0x9e3779b97f4a7c15) >> (64 - bits));
  }
  Entry entry(std::size_t position) const noexcept {
    return {static_cast<std::uint32_t>(load64(data_.data() + position)),
            static_cast<std::uint32_t>(position)};
  }
  std::size_t probeNear() noexcept {
    const std::uint64_t here = load64(data_.data() + position_);
    Entry& slot = near_[hashOf(here << 32, kNearBits)];
    return matchLength(std::exchange(slot, entry(position_)));
  }
  std::size_t probeFar() noexcept {
    const std::uint64_t here = load64(data_.data() + position_);
    Entry& slot = far_[hashOf(here, farBits_)];
    const std::size_t length = matchLength(slot);
    if (position_ % kFarStep == 0) slot = entry(position_);
    return length;
  }
  /// How far the data at `earlier` is that at the position; 0 for an empty entry too.
  std::size_t matchLength(const Entry& earlier) const noexcept {
    const char* const bytes = data_.data();
    if (earlier.bytes != static_cast<std::uint32_t>(load64(bytes + position_)) ||
        earlier.position >= position_) {
      return 0;
    }
    const std::size_t room = data_.size() - position_;
    std::size_t length = 0;
    while (length < room && bytes[earlier.position + length] == bytes[position_ + length]) ++length;
    return length;
  }

  BytesView data_;
  std::size_t position_ = 0;
  std::array<Entry, std::size_t{1} << kNearBits> near_{};
  int farBits_;
  std::vector<Entry> far_;
};

}  // namespace

bool looksIncompressible(BytesView data) {
  const double hopeless = static_cast<double>(data.size()) * kHopelessShare;
  double saved = 0;
  RepeatCounter repeats(data);
  for (std::size_t begin = 0; begin < data.size(); begin += kBlockBytes) {
    const BytesView block = data.substr(begin, kBlockBytes);
    saved += unevenness(block);
    saved += static_cast<double>(repeats.savedUpTo(begin + block.size()));
    if (saved > hopeless) return false;
  }
  return true;
}

}  // namespace ambervane
