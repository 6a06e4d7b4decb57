#ifndef AMBERVANE_STORE_TAG_RULE_CACHE_H_
#define AMBERVANE_STORE_TAG_RULE_CACHE_H_

#include <memory>
#include <mutex>
#include <vector>

#include "store/tag_rule.h"

namespace ambervane {

class Catalog;

/// The enabled tag rules in the order in which they run, read once and kept until one changes. Any
/// thread may call.
class TagRuleCache {
 public:
  using Rules = std::shared_ptr<const std::vector<TagRule>>;
  /// Throws SQLiteError.
  Rules rules(Catalog& catalog);
  void forget();

 private:
  std::mutex mutex_;
  Rules rules_;
};

}  // namespace ambervane

#endif  // AMBERVANE_STORE_TAG_RULE_CACHE_H_
