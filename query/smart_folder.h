#ifndef AMBERVANE_QUERY_SMART_FOLDER_H_
#define AMBERVANE_QUERY_SMART_FOLDER_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "base/date.h"
#include "base/localized_message.h"
#include "query/filter_node.h"
#include "query/search_query.h"

namespace ambervane {

/// A filter with a name.
struct SmartFolder {
  std::string id;
  std::string name;
  std::string icon;
  FilterNode filter;
  SearchSort sort = SearchSort::dateDescending;
  std::int64_t position = 0;
  Date createdAt;
  Date updatedAt;

  /// The messages of the folder, a page of them.
  SearchQuery query(std::int64_t limit, std::int64_t offset) const;
  friend bool operator==(const SmartFolder&, const SmartFolder&) = default;
};

/// On one line with sorted keys, which are the field names; dates in ISO 8601, whole seconds.
std::string smartFolderJson(const SmartFolder& folder);
/// Reads what `smartFolderJson` makes. Throws JsonError for anything else.
SmartFolder smartFolderFromJson(std::string_view text);

/// How many messages a smart folder holds.
struct SmartFolderCount {
  std::int64_t count = 0;
  bool isExact = true;  ///< false: counting stopped at the cap
  Date computedAt;
  double elapsed = 0;    ///< seconds
  bool isStale = false;  ///< the archive has changed since
  friend bool operator==(const SmartFolderCount&, const SmartFolderCount&) = default;
};

/// Why a smart folder cannot be saved.
class SmartFolderError final : public TranslatableError {
 public:
  enum class Reason { nameRequired, noUsableRules };
  explicit SmartFolderError(Reason reason) : reason_(reason) {}
  Reason reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// Throws SmartFolderError when the name is blank or the filter has no complete condition.
void requireSavable(const SmartFolder& folder);

}  // namespace ambervane

#endif  // AMBERVANE_QUERY_SMART_FOLDER_H_
