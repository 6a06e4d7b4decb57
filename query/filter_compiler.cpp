#include "query/filter_compiler.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <queue>
#include <string_view>
#include <utility>
#include <vector>

#include "base/calendar.h"
#include "base/text.h"
#include "mailcore/message_flag.h"
#include "query/filter_value.h"
#include "query/search_query_parser.h"
#include "query/sql_fragments.h"
#include "query/value_reading.h"

namespace ambervane::FilterCompiler {
namespace {

using Op = FilterOperator;
using Field = FilterField;

/// No single condition is deeper than this to SQLite, its subquery included.
constexpr int kConditionHeight = 12;
/// A group is joined in a plain chain as long as that is no deeper. Above that, each level of the
/// tree adds at most two to the deepest path (kMaxFilterDepth of them), and the number of
/// conditions its logarithm: 500 + 2 * 200 + 13 stays below SQLite's 1000.
constexpr int kMaxChainHeight = 500;

/// With more conditions than this SQLite's planner takes seconds to weigh them against its indexes,
/// of which so many conditions together make no use. A unary plus hides them from it.
constexpr int kMaxPlannedConditions = 50;

/// Part of the expression, with what its "?" stand for and how deep SQLite finds it.
struct Fragment {
  std::string sql;
  QueryValues params;
  int height = kConditionHeight;

  void append(std::string_view separator, Fragment other) {
    sql += separator;
    sql += other.sql;
    std::move(other.params.begin(), other.params.end(), std::back_inserter(params));
  }
};

/// How deep "a op b op c" is: it reads as "(a op b) op c".
int chainHeight(const std::vector<Fragment>& parts) {
  int height = parts.front().height;
  for (std::size_t i = 1; i < parts.size(); ++i) height = std::max(height, parts[i].height) + 1;
  return height;
}

/// Joins the two shallowest parts until one is left, which keeps the whole as shallow as it can be.
Fragment joinedShallow(std::vector<Fragment> parts, std::string_view separator) {
  const auto deeper = [&parts](std::size_t a, std::size_t b) {
    return std::pair(parts[a].height, a) > std::pair(parts[b].height, b);
  };
  std::priority_queue<std::size_t, std::vector<std::size_t>, decltype(deeper)> queue(deeper);
  for (std::size_t i = 0; i < parts.size(); ++i) queue.push(i);
  for (;;) {
    const std::size_t first = queue.top();
    queue.pop();
    if (queue.empty()) return std::move(parts[first]);
    const std::size_t second = queue.top();
    queue.pop();
    parts[first].height = std::max(parts[first].height, parts[second].height) + 1;
    parts[first].sql.insert(0, "(");
    parts[first].append(separator, std::exchange(parts[second], {}));
    parts[first].sql += ")";
    queue.push(first);
  }
}

Fragment joined(std::vector<Fragment> parts, FilterMatch match) {
  const std::string_view separator = match == FilterMatch::all ? " AND " : " OR ";
  const int height = chainHeight(parts);
  Fragment whole;
  if (height <= kMaxChainHeight) {
    whole = std::move(parts.front());
    for (std::size_t i = 1; i < parts.size(); ++i) whole.append(separator, std::move(parts[i]));
    whole.height = height;
  } else {
    whole = joinedShallow(std::move(parts), separator);
  }
  whole.sql = (match == FilterMatch::none ? "NOT (" : "(") + whole.sql + ")";
  if (match == FilterMatch::none) ++whole.height;
  return whole;
}

bool isNegative(Op op) noexcept { return op == Op::notContains || op == Op::isNot; }

/// The column a field of text stands for; empty for one that is looked up elsewhere.
std::string_view messageColumn(Field field) noexcept {
  switch (field) {
    case Field::subject:
      return "m.subject";
    case Field::from:
      return "m.from_addr";
    case Field::fromName:
      return "m.from_name";
    case Field::fromDomain:
      return "m.from_domain";
    case Field::recipient:
      return "m.to_addrs";
    case Field::cc:
      return "m.cc_addrs";
    case Field::participant:
      return "m.participants";
    case Field::messageID:
      return "m.message_id";
    case Field::threadKey:
      return "m.thread_key";
    case Field::digest:
      return "m.sha256";
    default:
      return {};
  }
}

/// Fields that a message has any number of: the beginning of the subquery, its column, and its end.
struct Lookup {
  std::string_view select;
  std::string_view column;
  std::string_view end;
};
Lookup lookupOf(Field field) noexcept {
  switch (field) {
    case Field::attachmentName:
      return {"attachment a WHERE a.message_id = m.id AND ", "a.filename", ")"};
    case Field::attachmentType:
      return {"attachment a WHERE a.message_id = m.id AND ", "a.mime_type", ")"};
    case Field::tag:
      return {"message_tag mt JOIN tag t ON t.id = mt.tag_id WHERE mt.message_id = m.id AND ",
              "t.name", ")"};
    case Field::flag:
      return {"message_folder mf WHERE mf.message_id = m.id AND ", "mf.flags", ")"};
    case Field::account:
      return {
          "message_folder mf JOIN folder fo ON fo.id = mf.folder_id JOIN account ac ON ac.id = "
          "fo.account_id WHERE mf.message_id = m.id AND ",
          "ac.name", " AND mf.removed_at IS NULL)"};
    default:
      return {
          "message_folder mf JOIN folder fo ON fo.id = mf.folder_id WHERE mf.message_id = m.id "
          "AND ",
          "fo.path", " AND mf.removed_at IS NULL)"};
  }
}

std::string exists(bool isTrue, const Lookup& lookup, const std::string& comparison) {
  std::string sql = isTrue ? "EXISTS (SELECT 1 FROM " : "NOT EXISTS (SELECT 1 FROM ";
  sql += lookup.select;
  sql += comparison;
  sql += lookup.end;
  return sql;
}

/// The positive form of `op`; absent for an operator that compares no text.
std::optional<std::string> textComparison(Op op, std::string_view column, std::string_view value,
                                          QueryValues& params) {
  switch (op) {
    case Op::isEqual:
    case Op::isNot:
      params.emplace_back(std::string(value));
      return std::string(column) + " = ? COLLATE NOCASE";
    case Op::contains:
    case Op::notContains:
      return like(column, containing(value), params);
    case Op::beginsWith:
      return like(column, likeEscaped(value) + "%", params);
    case Op::endsWith:
      return like(column, "%" + likeEscaped(value), params);
    default:
      return std::nullopt;
  }
}

/// The IMAP spelling of a flag, whether its backslash was typed or not; other words as typed.
std::string canonicalFlag(std::string_view value) {
  if (const auto flag = messageFlagFromImap(value)) return std::string(imapName(*flag));
  const std::string system = "\\" + std::string(value);
  if (const auto flag = messageFlagFromImap(system)) return std::string(imapName(*flag));
  return std::string(value);
}

class Compiler {
 public:
  explicit Compiler(const QueryContext& context) : context_(context) {}

  std::optional<Fragment> node(const FilterNode& node, int level) {
    if (const FilterCondition* rule = node.asRule()) return this->rule(*rule);
    const FilterGroup& group = *node.asGroup();
    std::vector<Fragment> parts;
    if (level < kMaxFilterDepth) {
      for (const FilterNode& child : group.children) {
        if (auto part = this->node(child, level + 1)) parts.push_back(std::move(*part));
      }
    }
    if (parts.empty()) return std::nullopt;
    return joined(std::move(parts), group.match);
  }

  /// How many have been compiled; beyond `kMaxFilterConditions` not all are counted.
  int conditions() const noexcept { return conditions_; }

 private:
  std::optional<Fragment> rule(const FilterCondition& rule) {
    if (conditions_ > kMaxFilterConditions) return std::nullopt;
    Fragment out;
    auto sql = condition(rule.field, rule.op, trim(rule.value), out.params);
    if (!sql) return std::nullopt;
    out.sql = std::move(*sql);
    ++conditions_;
    return out;
  }

  std::optional<std::string> condition(Field field, Op op, std::string_view value,
                                       QueryValues& params) const {
    if (value.empty() && facts(op).needsValue) return std::nullopt;
    switch (field) {
      case Field::hasAttachment:
        return boolean(op, "m.has_attachments = 1", "m.has_attachments = 0");
      case Field::onLegalHold:
        return boolean(op, kOnHold, "NOT " + std::string(kOnHold));
      case Field::isErased:
        return boolean(op, "m.erased = 1", "m.erased = 0");
      case Field::retentionClass:
        params.emplace_back(lowercase(value));
        return op == Op::isNot ? "m.retention_class <> ?" : "m.retention_class = ?";
      case Field::size:
        return numeric(op, "m.size", FilterValue::size(value), params);
      case Field::attachmentCount:
        return numeric(op, "m.attachment_count", parseInteger(value), params);
      case Field::sentDate:
        return date(op, "m.sent_at", value, params);
      case Field::ingestedDate:
        return date(op, "m.ingested_at", value, params);
      case Field::expiryDate:
        return date(op, "m.expires_at", value, params);
      case Field::anyText:
        return anyText(op, value, params);
      case Field::header:
        return header(op, value, params);
      default:
        return text(field, op, value, params);
    }
  }

  static std::optional<std::string> boolean(Op op, std::string_view yes, std::string_view no) {
    if (op == Op::isTrue) return std::string(yes);
    if (op == Op::isFalse) return std::string(no);
    return std::nullopt;
  }

  static std::optional<std::string> numeric(Op op, std::string_view column,
                                            std::optional<std::int64_t> value,
                                            QueryValues& params) {
    const char* comparison = nullptr;
    if (op == Op::greaterThan) comparison = " > ?";
    if (op == Op::lessThan) comparison = " < ?";
    if (op == Op::isEqual) comparison = " = ?";
    if (op == Op::isNot) comparison = " <> ?";
    if (comparison == nullptr || !value) return std::nullopt;
    params.emplace_back(*value);
    return std::string(column) + comparison;
  }

  std::optional<std::string> date(Op op, const std::string& column, std::string_view value,
                                  QueryValues& params) const {
    if (op == Op::isEmpty) return column + " IS NULL";
    if (op == Op::isNotEmpty) return column + " IS NOT NULL";
    const std::string notNull = "(" + column + " IS NOT NULL AND " + column;
    if (op == Op::inLastDays || op == Op::notInLastDays) {
      const auto days = readNumber(value);
      if (!days || *days <= 0) return std::nullopt;
      params.emplace_back(context_.now.seconds - *days * kSecondsPerDay);
      return (op == Op::notInLastDays ? "NOT " : "") + notNull + " >= ?)";
    }
    if (op != Op::onDate && op != Op::after && op != Op::before) return std::nullopt;
    const auto day = FilterValue::date(value);
    if (!day) return std::nullopt;
    params.emplace_back(day->seconds);
    if (op == Op::after) return notNull + " >= ?)";
    if (op == Op::before) return notNull + " < ?)";
    params.emplace_back(day->seconds + kSecondsPerDay);
    return notNull + " >= ? AND " + column + " < ?)";
  }

  /// Any operator looks for the text; one without a value asks nothing of all texts together.
  std::optional<std::string> anyText(Op op, std::string_view value, QueryValues& params) const {
    if (value.empty()) return std::nullopt;
    const char* const negation = isNegative(op) ? "NOT " : "";
    if (context_.supportsFTS) {
      if (auto expression = SearchQueryParser::ftsExpression(value)) {
        params.emplace_back(std::move(*expression));
        return std::string(negation) +
               "m.id IN (SELECT rowid FROM message_fts WHERE message_fts MATCH ?)";
      }
    }
    return negation + textLike(value, params);
  }

  /// The value is a field's name, and behind a colon what its text is compared with.
  std::optional<std::string> header(Op op, std::string_view value, QueryValues& params) const {
    const std::size_t colon = std::min(value.find(':'), value.size());
    const std::string name = lowercase(trim(value.substr(0, colon)));
    if (!context_.supportsHeaderIndex || name.empty()) return std::nullopt;
    params.emplace_back(name);
    const Lookup lookup{"message_header mh WHERE mh.message_id = m.id AND mh.name = ?", {}, ")"};
    if (op == Op::isEmpty || op == Op::isNotEmpty) {
      return exists(op == Op::isNotEmpty, lookup, " AND mh.value <> ''");
    }
    std::string comparison;
    const std::string_view wanted = trim(value.substr(std::min(colon + 1, value.size())));
    if (!wanted.empty()) {
      const auto compared = textComparison(op, "mh.value", wanted, params);
      if (!compared) return std::nullopt;
      comparison = " AND " + *compared;
    }
    return exists(!isNegative(op), lookup, comparison);
  }

  static std::optional<std::string> text(Field field, Op op, std::string_view value,
                                         QueryValues& params) {
    if (field == Field::digest && op == Op::beginsWith) {
      return digestRange(lowercase(value), params);
    }
    const std::string_view column = messageColumn(field);
    if (!column.empty()) return ofColumn(field, std::string(column), op, value, params);
    const Lookup lookup = lookupOf(field);
    if (op == Op::isEmpty || op == Op::isNotEmpty) {
      return exists(op == Op::isNotEmpty, lookup, std::string(lookup.column) + " <> ''");
    }
    // The negation stands outside: "no attachment is called x" is what is asked.
    std::optional<std::string> comparison;
    if (field == Field::flag) {
      comparison =
          like("' ' || mf.flags || ' '", "% " + likeEscaped(canonicalFlag(value)) + " %", params);
    } else {
      comparison = textComparison(op, lookup.column, value, params);
    }
    if (!comparison) return std::nullopt;
    return exists(!isNegative(op), lookup, *comparison);
  }

  static std::optional<std::string> ofColumn(Field field, const std::string& column, Op op,
                                             std::string_view value, QueryValues& params) {
    // So a message that has no such value counts as one that does not contain it.
    const std::string orEmpty = "IFNULL(" + column + ", '')";
    if (op == Op::isEmpty) return orEmpty + " = ''";
    if (op == Op::isNotEmpty) return orEmpty + " <> ''";
    const auto comparison =
        textComparison(op, field == Field::digest ? column : orEmpty, value, params);
    if (!comparison || !isNegative(op)) return comparison;
    return "NOT (" + *comparison + ")";
  }

  const QueryContext& context_;
  int conditions_ = 0;
};

}  // namespace

std::optional<std::string> emit(const FilterNode& node, QueryValues& params,
                                const QueryContext& context) {
  Compiler compiler(context);
  auto whole = compiler.node(node, 1);
  if (!whole) return std::nullopt;
  if (compiler.conditions() > kMaxFilterConditions) return "0";
  if (compiler.conditions() > kMaxPlannedConditions) whole->sql = "+(" + whole->sql + ")";
  std::move(whole->params.begin(), whole->params.end(), std::back_inserter(params));
  return std::move(whole->sql);
}

std::optional<CompiledFilter> compile(const FilterNode& node, const QueryContext& context) {
  CompiledFilter compiled;
  auto sql = emit(node, compiled.params, context);
  if (!sql) return std::nullopt;
  compiled.sql = std::move(*sql);
  return compiled;
}

}  // namespace ambervane::FilterCompiler
