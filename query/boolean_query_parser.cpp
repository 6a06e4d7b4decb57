#include "query/boolean_query_parser.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/digest.h"
#include "base/text.h"
#include "query/query_language.h"

// The grammar nests without bound, so nothing here recurses on it: open brackets lie on a stack of
// our own, and the tree grows in a flat list, from which its upper levels are taken at the end.
//
//   expression = term { OR term }      one child stands for itself, several are an "any" group
//   term       = { AND | NOT factor | "(" expression ")" | "-" atom | atom | word }
//                                      one child stands for itself, several are an "all" group
//   factor     = "(" expression ")" | NOT factor | atom | word
//
// Words of a term collect until a bracket, NOT, "-" or the term's end; they are looked for
// together.

namespace ambervane::BooleanQueryParser {
namespace {

using Op = FilterOperator;
using Field = FilterField;

FilterCondition condition(Field field, Op op, std::string value) {
  return {randomUuid(), field, op, std::move(value)};
}

FilterCondition words(std::string value) {
  return condition(Field::anyText, Op::contains, std::move(value));
}

/// What a key with a plain value asks.
struct Question {
  QueryKey key;
  Field field;
  Op op;
};
constexpr std::array<Question, 20> kQuestions = {{
    {QueryKey::text, Field::anyText, Op::contains},
    {QueryKey::subject, Field::subject, Op::contains},
    {QueryKey::from, Field::from, Op::contains},
    {QueryKey::domain, Field::fromDomain, Op::contains},
    {QueryKey::recipient, Field::recipient, Op::contains},
    {QueryKey::cc, Field::cc, Op::contains},
    {QueryKey::participant, Field::participant, Op::contains},
    {QueryKey::folder, Field::folder, Op::contains},
    {QueryKey::account, Field::account, Op::contains},
    {QueryKey::filename, Field::attachmentName, Op::contains},
    {QueryKey::mimeType, Field::attachmentType, Op::contains},
    {QueryKey::retentionClass, Field::retentionClass, Op::isEqual},
    {QueryKey::after, Field::sentDate, Op::after},
    {QueryKey::before, Field::sentDate, Op::before},
    {QueryKey::on, Field::sentDate, Op::onDate},
    {QueryKey::newer, Field::sentDate, Op::inLastDays},
    {QueryKey::larger, Field::size, Op::greaterThan},
    {QueryKey::smaller, Field::size, Op::lessThan},
    {QueryKey::flag, Field::flag, Op::contains},
    {QueryKey::header, Field::header, Op::contains},
}};

std::optional<FilterCondition> state(Field field, bool holds) {
  if (!holds) return std::nullopt;
  return condition(field, Op::isTrue, {});
}

/// `token` as a condition, when it is a known key and a value.
std::optional<FilterCondition> atom(std::string_view token) {
  const std::size_t colon = token.find(':');
  if (colon == 0 || colon == std::string_view::npos) return std::nullopt;
  const auto key = queryKey(token.substr(0, colon));
  const std::string_view value = unquoted(token.substr(colon + 1));
  if (!key || value.empty()) return std::nullopt;
  switch (*key) {
    case QueryKey::digest:
      return condition(Field::digest, Op::beginsWith, lowercase(value));
    case QueryKey::year: {
      // Only from when: the simple parser's year has an end, too.
      const auto year = parseInteger(value);
      if (!year) return std::nullopt;
      return condition(Field::sentDate, Op::after, std::to_string(*year));
    }
    case QueryKey::has:
      if (meansAttachment(value)) return state(Field::hasAttachment, true);
      return state(Field::onLegalHold, meansHeld(value));
    case QueryKey::is:
      if (meansErased(value, true)) return state(Field::isErased, true);
      return state(Field::onLegalHold, meansHeld(value));
    default:
      for (const Question& question : kQuestions) {
        if (question.key == *key) {
          return condition(question.field, question.op, std::string(value));
        }
      }
      return std::nullopt;
  }
}

/// `tokens` with each bracket outside quotes as a token of its own.
std::vector<std::string_view> separateBrackets(const std::vector<std::string_view>& tokens) {
  std::vector<std::string_view> out;
  for (const std::string_view token : tokens) {
    std::size_t begin = 0;
    bool inQuotes = false;
    for (std::size_t at = 0; at < token.size(); ++at) {
      if (token[at] == '"') inQuotes = !inQuotes;
      if (inQuotes || (token[at] != '(' && token[at] != ')')) continue;
      if (at > begin) out.push_back(token.substr(begin, at - begin));
      out.push_back(token.substr(at, 1));
      begin = at + 1;
    }
    if (begin < token.size()) out.push_back(token.substr(begin));
  }
  return out;
}

class Parser {
 public:
  explicit Parser(std::vector<std::string_view> tokens) : tokens_(std::move(tokens)) {}

  std::optional<FilterNode> parse() {
    open_.emplace_back();
    std::optional<Reference> root;
    while (!root && !open_.empty()) root = step();
    if (!root) return std::nullopt;
    return built(*root, 1);
  }

 private:
  using Reference = std::size_t;
  /// A condition, or a group of what lies elsewhere in the list.
  struct Draft {
    std::optional<FilterCondition> rule;
    FilterMatch match = FilterMatch::all;
    std::vector<Reference> children;
  };
  /// An expression being read: the line's own, or one in brackets.
  struct Expression {
    std::vector<Reference> terms;
    std::vector<Reference> items;         ///< of the term being read
    std::vector<std::string> looseWords;  ///< of the term being read
    bool behindOr = false;
    bool termEnded = false;  ///< only OR or a bracket may follow
    std::size_t nots = 0;    ///< how many NOT stand before its bracket
  };

  std::string_view next() const noexcept {
    return at_ < tokens_.size() ? tokens_[at_] : std::string_view();
  }
  std::optional<QueryKeyword> nextKeyword() const { return queryKeyword(next()); }

  Reference add(FilterCondition rule) {
    drafts_.emplace_back().rule = std::move(rule);
    return drafts_.size() - 1;
  }
  Reference add(FilterMatch match, std::vector<Reference> children) {
    Draft& draft = drafts_.emplace_back();
    draft.match = match;
    draft.children = std::move(children);
    return drafts_.size() - 1;
  }
  std::optional<Reference> joined(FilterMatch match, std::vector<Reference>& children) {
    if (children.empty()) return std::nullopt;
    if (children.size() == 1) return children.front();
    return add(match, std::exchange(children, {}));
  }
  Reference negated(Reference node, std::size_t times) {
    for (; times > 0; --times) node = add(FilterMatch::none, {node});
    return node;
  }

  void flushWords(Expression& open) {
    if (open.looseWords.empty()) return;
    open.items.push_back(add(words(join(open.looseWords, " "))));
    open.looseWords.clear();
  }

  /// Ends the term being read; false when it holds nothing.
  bool endTerm(Expression& open) {
    flushWords(open);
    const auto term = joined(FilterMatch::all, open.items);
    open.items.clear();
    open.termEnded = false;
    if (term) open.terms.push_back(*term);
    return term.has_value();
  }

  /// Reads the next token. Gives the tree when that ends the line's expression.
  std::optional<Reference> step() {
    Expression& open = open_.back();
    if (at_ == tokens_.size()) return close();
    if (next() == ")") {
      // A surplus one ends the reading.
      if (open_.size() > 1) ++at_;
      return close();
    }
    const auto keyword = nextKeyword();
    if (keyword == QueryKeyword::orWord) {
      if (!endTerm(open) && open.behindOr) return close();
      open.behindOr = true;
      ++at_;
      return std::nullopt;
    }
    if (open.termEnded) return close();
    if (keyword == QueryKeyword::andWord) {
      ++at_;
    } else if (keyword == QueryKeyword::notWord) {
      readNegation(open);
    } else if (next() == "(") {
      flushWords(open);
      ++at_;
      open_.emplace_back();
    } else {
      readWord(open);
    }
    return std::nullopt;
  }

  void readNegation(Expression& open) {
    flushWords(open);
    std::size_t nots = 0;
    for (; nextKeyword() == QueryKeyword::notWord; ++at_) ++nots;
    if (next() == "(") {
      ++at_;
      open_.emplace_back().nots = nots;
      return;
    }
    // Not a factor, which leaves nothing to negate.
    if (at_ == tokens_.size() || next() == ")" || nextKeyword()) return;
    const std::string_view token = tokens_[at_++];
    auto rule = atom(token);
    if (!rule) rule = words(std::string(unquoted(token)));
    open.items.push_back(negated(add(std::move(*rule)), nots));
  }

  void readWord(Expression& open) {
    const std::string_view token = tokens_[at_++];
    if (token.starts_with('-') && token.size() >= 2) {
      flushWords(open);
      // "-word" is dropped: a word is excluded with NOT.
      if (auto rule = atom(token.substr(1))) {
        open.items.push_back(negated(add(std::move(*rule)), 1));
      }
    } else if (auto rule = atom(token)) {
      open.items.push_back(add(std::move(*rule)));
    } else {
      open.looseWords.emplace_back(unquoted(token));
    }
  }

  /// Ends the innermost expression and hands it to the one around it.
  std::optional<Reference> close() {
    endTerm(open_.back());
    Expression closed = std::move(open_.back());
    open_.pop_back();
    const auto node = joined(FilterMatch::any, closed.terms);
    if (open_.empty()) return node;
    Expression& outer = open_.back();
    if (node) {
      outer.items.push_back(negated(*node, closed.nots));
    } else if (closed.nots == 0) {
      outer.termEnded = true;
    }
    return std::nullopt;
  }

  /// The tree below `reference`, as far as `kMaxFilterDepth`.
  FilterNode built(Reference reference, int level) {
    Draft& draft = drafts_[reference];
    if (draft.rule) return {std::move(*draft.rule)};
    std::vector<FilterNode> children;
    if (level < kMaxFilterDepth) {
      for (const Reference child : draft.children) children.push_back(built(child, level + 1));
    }
    return FilterNode::group(draft.match, std::move(children));
  }

  std::vector<std::string_view> tokens_;
  std::size_t at_ = 0;
  std::vector<Draft> drafts_;
  std::vector<Expression> open_;
};

}  // namespace

bool needsTree(std::string_view line) {
  if (line.find_first_of("()") != std::string_view::npos) return true;
  for (const std::string_view token : splitPreservingQuotes(line)) {
    const auto keyword = queryKeyword(token);
    if (keyword && *keyword != QueryKeyword::andWord) return true;
    const std::size_t colon = token.find(':');
    if (colon == std::string_view::npos) continue;
    const auto key = queryKey(token.substr(0, colon));
    if (key == QueryKey::flag || key == QueryKey::header) return true;
  }
  return false;
}

std::optional<FilterNode> parse(std::string_view line) {
  const auto tree = Parser(separateBrackets(splitPreservingQuotes(line))).parse();
  if (!tree) return std::nullopt;
  return tree->pruned();
}

}  // namespace ambervane::BooleanQueryParser
