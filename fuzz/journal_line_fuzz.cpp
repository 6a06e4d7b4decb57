#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "evidence/audit_entry.h"

using namespace ambervane;

// What reads as an entry must write and read back as the same entry, with the same hash.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto entry = decodeAuditEntry({reinterpret_cast<const char*>(data), size});
  if (!entry) return 0;
  const auto again = decodeAuditEntry(encodeAuditEntry(*entry));
  if (again != entry || computeEntryHash(*again) != computeEntryHash(*entry)) std::abort();
  return 0;
}
