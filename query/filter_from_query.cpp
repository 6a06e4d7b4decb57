#include <limits>
#include <utility>
#include <vector>

#include "base/calendar.h"
#include "base/text.h"
#include "query/filter_value.h"
#include "query/query_builder.h"

namespace ambervane {
namespace {

using Op = FilterOperator;
using Field = FilterField;

/// Collects the rules that all must hold.
class Rules {
 public:
  void add(Field field, Op op, const std::string& value) {
    rules_.push_back(FilterNode::rule(field, op, value));
  }
  void addText(Field field, const std::optional<std::string>& value, Op op = Op::contains) {
    if (value) add(field, op, *value);
  }
  /// One of two fields holds the text.
  void addEither(Field a, Field b, const std::optional<std::string>& value) {
    if (!value) return;
    rules_.push_back(FilterNode::group(
        FilterMatch::any,
        {FilterNode::rule(a, Op::contains, *value), FilterNode::rule(b, Op::contains, *value)}));
  }
  void addDay(Op op, const std::optional<Date>& date) {
    if (!date) return;
    const std::string day = formatDate(*date, "yyyy-MM-dd");
    // A tree knows whole days only.
    if (FilterValue::date(day) == date) add(Field::sentDate, op, day);
  }
  void addState(Field field, const std::optional<bool>& state) {
    if (state) add(field, *state ? Op::isTrue : Op::isFalse, {});
  }

  std::optional<FilterNode> take() {
    if (rules_.empty()) return std::nullopt;
    if (rules_.size() == 1) return std::move(rules_.front());
    return FilterNode::group(FilterMatch::all, std::move(rules_));
  }

 private:
  std::vector<FilterNode> rules_;
};

}  // namespace

std::optional<FilterNode> filterFromQuery(const SearchQuery& query) {
  if (query.filter) return query.filter->pruned();
  using Bound = std::numeric_limits<std::int64_t>;
  Rules rules;
  rules.addText(Field::anyText, query.text);
  rules.addText(Field::folder, query.folder);
  rules.addText(Field::subject, query.subject);
  rules.addEither(Field::from, Field::fromName, query.from);
  rules.addEither(Field::recipient, Field::cc, query.recipient);
  rules.addText(Field::participant, query.participant);
  rules.addDay(Op::after, query.dateFrom);
  rules.addDay(Op::before, query.dateTo);
  rules.addState(Field::hasAttachment, query.hasAttachment);
  rules.addText(Field::attachmentName, query.filename);
  // A query's bounds are inclusive, a tree's are not.
  if (query.minSize && *query.minSize > Bound::min()) {
    rules.add(Field::size, Op::greaterThan, std::to_string(*query.minSize - 1));
  }
  if (query.maxSize && *query.maxSize < Bound::max()) {
    rules.add(Field::size, Op::lessThan, std::to_string(*query.maxSize + 1));
  }
  if (query.digest) rules.add(Field::digest, Op::beginsWith, lowercase(*query.digest));
  rules.addText(Field::retentionClass, query.retentionClass, Op::isEqual);
  if (query.onLegalHold == true) rules.addState(Field::onLegalHold, true);
  const auto tree = rules.take();
  return tree ? tree->pruned() : std::nullopt;
}

}  // namespace ambervane
