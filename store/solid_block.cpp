#include "store/solid_block.h"

#include <fmt/format.h>

#include <cstdint>
#include <limits>
#include <stdexcept>

#include "store/pack_error.h"

namespace ambervane {
namespace {

constexpr std::size_t kMaxValue = std::numeric_limits<std::uint32_t>::max();

[[noreturn]] void fail(std::string text) {
  throw PackError(PackError::CorruptRecord{std::move(text)});
}

/// Steps through the members of a block, whose table it has found to be whole.
class MemberWalk {
 public:
  explicit MemberWalk(BytesView block) : block_(block) {
    if (block.size() < SolidBlock::kHeaderBytes || !block.starts_with(SolidBlock::kMagic)) {
      fail("not a solid block");
    }
    count_ = readLittleEndian32(block, SolidBlock::kMagic.size());
    if (count_ > (block.size() - SolidBlock::kHeaderBytes) / SolidBlock::kEntryBytes) {
      fail("solid block member table runs past the block");
    }
    end_ = SolidBlock::kHeaderBytes + count_ * SolidBlock::kEntryBytes;
  }
  std::size_t count() const noexcept { return count_; }
  /// To be called at most `count` times.
  ByteRange next() {
    const std::size_t length =
        readLittleEndian32(block_, SolidBlock::kHeaderBytes + index_ * SolidBlock::kEntryBytes);
    if (length > block_.size() - end_) {
      fail(fmt::format("solid block member {} runs past the block", index_));
    }
    ++index_;
    const std::size_t begin = end_;
    end_ += length;
    return {begin, end_};
  }

 private:
  BytesView block_;
  std::size_t count_ = 0;
  std::size_t index_ = 0;
  std::size_t end_ = 0;  ///< of the table, then of the last member
};

}  // namespace

Bytes SolidBlock::pack(std::span<const BytesView> members) {
  if (members.size() > kMaxValue) throw std::length_error("too many members for a solid block");
  std::size_t total = kHeaderBytes + members.size() * kEntryBytes;
  for (const BytesView member : members) {
    if (member.size() > kMaxValue) throw std::length_error("a member too large for a solid block");
    total += member.size();
  }
  Bytes block(kMagic);
  block.reserve(total);
  appendLittleEndian32(block, static_cast<std::uint32_t>(members.size()));
  for (const BytesView member : members) {
    appendLittleEndian32(block, static_cast<std::uint32_t>(member.size()));
  }
  for (const BytesView member : members) block.append(member);
  return block;
}

std::vector<ByteRange> SolidBlock::members(BytesView block) {
  MemberWalk walk(block);
  std::vector<ByteRange> ranges(walk.count());
  for (ByteRange& range : ranges) range = walk.next();
  return ranges;
}

BytesView SolidBlock::member(std::size_t index, BytesView block) {
  MemberWalk walk(block);
  if (index >= walk.count()) fail("not a solid block");
  for (std::size_t before = 0; before < index; ++before) walk.next();
  return slice(block, walk.next());
}

}  // namespace ambervane
