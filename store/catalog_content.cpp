// What concerns the catalog's content as a whole.

#include "store/catalog.h"

namespace ambervane {

std::string Catalog::contentFingerprint() {
  return "generation-" + meta("mutation_generation").value_or("0");
}

std::optional<std::string> Catalog::messageDigest(std::int64_t id) {
  std::optional<std::string> digest;
  db_->forEachRow("SELECT sha256 FROM message WHERE id = ?", {id}, [&digest](const Row& row) {
    digest = row.string("sha256");
    return false;
  });
  return digest;
}

bool Catalog::forgetErasedText() {
  // A row deleted from an index without content leaves its words in the segments until these are
  // written anew. The pages given up are overwritten (secure_delete), in the log at first.
  optimizeSearchIndex();
  return db_->checkpoint();
}

}  // namespace ambervane
