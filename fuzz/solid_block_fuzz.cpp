#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "store/pack_error.h"
#include "store/solid_block.h"

// The content of a block. What is taken apart must go together again, and each member must be the
// same alone as among the others.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  const BytesView block(reinterpret_cast<const char*>(data), size);
  try {
    std::vector<BytesView> members;
    for (const ByteRange& range : SolidBlock::members(block)) {
      members.push_back(slice(block, range));
    }
    if (!block.starts_with(SolidBlock::pack(members))) std::abort();
    if (!members.empty() && SolidBlock::member(members.size() - 1, block) != members.back()) {
      std::abort();
    }
  } catch (const PackError&) {
  }
  return 0;
}
