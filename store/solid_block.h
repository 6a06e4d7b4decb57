#ifndef AMBERVANE_STORE_SOLID_BLOCK_H_
#define AMBERVANE_STORE_SOLID_BLOCK_H_

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "base/bytes.h"

namespace ambervane {

/// Several message records joined, to be compressed as one. Layout: docs/format/solid_block.md.
/// Members are counted from 0.
class SolidBlock {
 public:
  static constexpr std::string_view kMagic = "AVB1";
  static constexpr std::size_t kHeaderBytes = 8;  ///< magic and number of members
  static constexpr std::size_t kEntryBytes = 4;   ///< of the table of lengths

  /// Throws std::length_error for a member of 4 GiB and more or as many members.
  static Bytes pack(std::span<const BytesView> members);
  /// Where each member lies in `block`. Bytes behind the last are ignored. Throws PackError
  /// (CorruptRecord); memory follows what the block holds, not what it claims.
  static std::vector<ByteRange> members(BytesView block);
  /// One member, a view into `block`; what is wrong behind it does no harm. Throws PackError
  /// (CorruptRecord), also for an index the block does not have.
  static BytesView member(std::size_t index, BytesView block);
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_SOLID_BLOCK_H_
