#include <cstddef>
#include <cstdint>

#include "store/recovery_index.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  RecoveryIndex::parse({reinterpret_cast<const char*>(data), size},
                       [](const RecoveryIndex::Entry&) {});
  return 0;
}
