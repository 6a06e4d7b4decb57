#ifndef AMBERVANE_STORE_UNNAMED_BLOBS_H_
#define AMBERVANE_STORE_UNNAMED_BLOBS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "store/base64_recipe.h"
#include "store/mail_archive.h"
#include "store/pack_scan.h"

namespace ambervane {

/// The ways in which `decoded` bytes may have stood as base64 in `encoded` bytes: those whose
/// lengths fit, the usual ones first, and not many.
std::vector<Base64Recipe> plausibleRecipes(std::size_t decoded, std::size_t encoded);

/// Blob records of which no sidecar says what they are. A message record names its blobs by digest
/// and length, which is enough to know them again.
class UnnamedBlobs {
 public:
  void add(std::int64_t packID, const ScannedRecord& record);
  bool isEmpty() const noexcept { return records_.empty(); }
  /// The row of the blob with this hash and number of encoded bytes, if one of the records proves
  /// to be it; that record is used up.
  std::optional<BlobRow> take(MailArchive& archive, const std::string& hash,
                              std::uint32_t encodedLength);

 private:
  struct Place {
    std::int64_t packID = 0;
    ScannedRecord record;
  };
  std::multimap<std::size_t, Place> records_;  ///< by bytes before compression
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_UNNAMED_BLOBS_H_
