#include "store/pack_error.h"

namespace ambervane {
namespace {

struct Words {
  LocalizedMessage operator()(const PackError::CorruptRecord& r) const {
    return {"Corrupt pack record: %@", {r.text}};
  }
  LocalizedMessage operator()(const PackError::ChecksumMismatch& r) const {
    return {"Checksum mismatch in pack %1$@ at offset %2$@",
            {std::to_string(r.packID), std::to_string(r.offset)}};
  }
  LocalizedMessage operator()(const PackError::PackMissing& r) const {
    return {"Pack file %@ is missing", {r.name}};
  }
  LocalizedMessage operator()(const PackError::TooLarge& r) const {
    return {"Record of %@ bytes exceeds the pack record limit", {std::to_string(r.bytes)}};
  }
  LocalizedMessage operator()(const PackError::ReadOnly&) const {
    return {"Archive is open read-only", {}};
  }
};

}  // namespace

LocalizedMessage PackError::message() const { return std::visit(Words{}, reason_); }

}  // namespace ambervane
