#include "query/query_builder.h"

#include <string_view>
#include <utility>
#include <vector>

#include "base/text.h"
#include "query/filter_compiler.h"
#include "query/search_query_parser.h"
#include "query/sql_fragments.h"

namespace ambervane {
namespace {

// The weights belong to the columns subject, participants, body, attachments.
constexpr const char* kRank = "bm25(message_fts, 8.0, 4.0, 1.0, 3.0)";
constexpr const char* kOrderByRank = "ORDER BY bm25(message_fts, 8.0, 4.0, 1.0, 3.0) ASC";

class Builder {
 public:
  Builder(const SearchQuery& query, const QueryContext& context)
      : query_(query), context_(context) {}

  BuiltQuery build() {
    built_.from = "FROM message m";
    addText();
    addFolder();
    addPeople();
    addFacts();
    addDigest();
    addCompliance();
    addMessages();
    if (!query_.includeErased) conditions_.emplace_back("m.erased = 0");
    addFilter();
    if (built_.usedFullText && context_.supportsHitIndex && asksOnlyForHits()) {
      built_.from =
          "FROM message_fts JOIN message m INDEXED BY idx_message_hit ON m.id = message_fts.rowid";
    }
    if (!joins_.empty() && !query_.folderID) built_.distinct = "DISTINCT ";
    built_.joins = join(joins_, " ");
    if (!conditions_.empty()) built_.where = " WHERE " + join(conditions_, " AND ");
    built_.order = order();
    // A join's "?" stands before those of the conditions.
    built_.params = std::move(joinParams_);
    for (QueryValue& value : params_) built_.params.push_back(std::move(value));
    built_.limit = query_.limit;
    built_.offset = query_.offset;
    return std::move(built_);
  }

 private:
  void add(std::string condition) { conditions_.push_back(std::move(condition)); }
  void add(std::string condition, QueryValue value) {
    conditions_.push_back(std::move(condition));
    params_.push_back(std::move(value));
  }

  void addText() {
    const std::string_view text = query_.text ? trim(*query_.text) : std::string_view();
    if (text.empty()) return;
    if (context_.supportsFTS) {
      if (auto expression = SearchQueryParser::ftsExpression(text)) {
        built_.from = "FROM message_fts JOIN message m ON m.id = message_fts.rowid";
        built_.usedFullText = true;
        built_.matchExpression = *expression;
        add("message_fts MATCH ?", std::move(*expression));
        return;
      }
    }
    add(textLike(text, params_));
  }

  void addFolder() {
    if (query_.folderID) {
      joins_.emplace_back("JOIN message_folder mf ON mf.message_id = m.id AND mf.folder_id = ?");
      joinParams_.emplace_back(*query_.folderID);
      add("mf.removed_at IS NULL");
      return;
    }
    if (!query_.folder && !query_.accountID) return;
    // A message that has left a folder is still found by the folder's name.
    joins_.emplace_back("JOIN message_folder mf ON mf.message_id = m.id");
    joins_.emplace_back("JOIN folder fo ON fo.id = mf.folder_id");
    if (query_.folder) add(like("fo.path", containing(*query_.folder), params_));
    if (query_.accountID) add("fo.account_id = ?", *query_.accountID);
  }

  void addPeople() {
    if (query_.subject) add(like("m.subject", containing(*query_.subject), params_));
    if (query_.from) {
      addEither("m.from_addr", lowercase(*query_.from), "m.from_name", *query_.from);
    }
    if (query_.recipient) {
      addEither("m.to_addrs", *query_.recipient, "m.cc_addrs", *query_.recipient);
    }
    if (query_.participant) {
      add(like("m.participants", containing(lowercase(*query_.participant)), params_));
    }
  }

  void addEither(std::string_view column, std::string_view value, std::string_view otherColumn,
                 std::string_view otherValue) {
    const std::string one = like(column, containing(value), params_);
    const std::string other = like(otherColumn, containing(otherValue), params_);
    add("(" + one + " OR " + other + ")");
  }

  void addFacts() {
    if (query_.dateFrom) add("m.sent_at >= ?", query_.dateFrom->seconds);
    if (query_.dateTo) add("m.sent_at < ?", query_.dateTo->seconds);
    if (query_.hasAttachment) {
      add(*query_.hasAttachment ? "m.has_attachments = 1" : "m.has_attachments = 0");
    }
    if (query_.filename) {
      add("EXISTS (SELECT 1 FROM attachment a WHERE a.message_id = m.id AND " +
          like("a.filename", containing(*query_.filename), params_) + ")");
    }
    if (query_.minSize) add("m.size >= ?", *query_.minSize);
    if (query_.maxSize) add("m.size <= ?", *query_.maxSize);
  }

  void addDigest() {
    constexpr std::size_t kWholeDigest = 64;
    const std::string digest = lowercase(query_.digest.value_or(std::string()));
    if (digest.empty()) return;
    if (digest.size() == kWholeDigest) {
      add("m.sha256 = ?", digest);
    } else {
      add(digestRange(digest, params_));
    }
  }

  void addCompliance() {
    if (query_.retentionClass) add("m.retention_class = ?", *query_.retentionClass);
    if (query_.onLegalHold == true) add(std::string(kOnHold));
    if (query_.expiringBefore) {
      add("m.expires_at IS NOT NULL AND m.expires_at <= ?", query_.expiringBefore->seconds);
    }
  }

  void addMessages() {
    if (!query_.messageIDs) return;
    const std::vector<std::int64_t>& ids = *query_.messageIDs;
    if (ids.empty()) {
      add("0");
      return;
    }
    if (ids.size() > kMaxBoundMessageIDs) {
      std::string list;
      for (const std::int64_t id : ids) {
        list += list.empty() ? '[' : ',';
        list += std::to_string(id);
      }
      add("m.id IN (SELECT value FROM json_each(?))", list + "]");
      return;
    }
    std::string marks;
    for (const std::int64_t id : ids) {
      marks += marks.empty() ? "?" : ",?";
      params_.emplace_back(id);
    }
    add("m.id IN (" + marks + ")");
  }

  void addFilter() {
    const auto filter = query_.filter ? query_.filter->pruned() : std::nullopt;
    if (!filter) return;
    if (auto sql = FilterCompiler::emit(*filter, params_, context_)) add(std::move(*sql));
  }

  /// Whether of each message only columns of idx_message_hit are wanted, in which those erased are
  /// not.
  bool asksOnlyForHits() const {
    const bool wantsRow = query_.subject || query_.recipient || query_.participant ||
                          query_.filename || query_.digest || query_.retentionClass ||
                          query_.onLegalHold || query_.expiringBefore || query_.messageIDs ||
                          query_.filter || query_.includeErased || !joins_.empty();
    const bool ordersByHit =
        query_.sort == SearchSort::dateDescending || query_.sort == SearchSort::dateAscending ||
        query_.sort == SearchSort::sizeDescending || query_.sort == SearchSort::relevance;
    return !wantsRow && ordersByHit;
  }

  const char* order() const {
    const bool inFolder = query_.folderID.has_value();
    switch (query_.sort) {
      case SearchSort::dateDescending:
        return inFolder ? "ORDER BY mf.sent_at DESC NULLS LAST, mf.message_id DESC"
                        : "ORDER BY m.sent_at DESC NULLS LAST, m.id DESC";
      case SearchSort::dateAscending:
        return inFolder ? "ORDER BY mf.sent_at ASC NULLS LAST, mf.message_id ASC"
                        : "ORDER BY m.sent_at ASC NULLS LAST, m.id ASC";
      case SearchSort::sizeDescending:
        return "ORDER BY m.size DESC";
      case SearchSort::relevance:
        return built_.usedFullText ? kOrderByRank : "ORDER BY m.sent_at DESC";
      case SearchSort::subject:
        return "ORDER BY m.subject_norm COLLATE NOCASE ASC";
      case SearchSort::sender:
        return "ORDER BY m.from_addr COLLATE NOCASE ASC";
      case SearchSort::recipient:
        return "ORDER BY m.to_addrs COLLATE NOCASE ASC, m.sent_at DESC";
      case SearchSort::mailbox:
        // Else by the first of the folders the message is in.
        return inFolder ? "ORDER BY mf.sent_at DESC NULLS LAST"
                        : "ORDER BY (SELECT MIN(f.path) FROM message_folder mf2 JOIN folder f ON "
                          "f.id = mf2.folder_id WHERE mf2.message_id = m.id AND mf2.removed_at IS "
                          "NULL) COLLATE NOCASE ASC NULLS LAST, m.sent_at DESC";
      case SearchSort::attachmentCount:
        return "ORDER BY m.attachment_count DESC, m.size DESC";
    }
    return "";
  }

  const SearchQuery& query_;
  const QueryContext& context_;
  BuiltQuery built_;
  std::vector<std::string> joins_;
  std::vector<std::string> conditions_;
  QueryValues joinParams_;
  QueryValues params_;
};

}  // namespace

std::string BuiltQuery::hitsSql() const {
  const std::string rank = usedFullText ? kRank : "0.0";
  return "SELECT " + distinct + "m.*, " + rank + " AS rank " + from + " " + joins + where + " " +
         order + " LIMIT ? OFFSET ?";
}

QueryValues BuiltQuery::hitsParams() const {
  QueryValues all = params;
  all.emplace_back(limit);
  all.emplace_back(offset);
  return all;
}

std::string BuiltQuery::countSql() const {
  return "SELECT COUNT(*) AS n FROM (\n    SELECT " + distinct + "m.id " + from + " " + joins +
         where + " LIMIT " + std::to_string(kCountCap) + "\n)";
}

BuiltQuery buildQuery(const SearchQuery& query, const QueryContext& context) {
  return Builder(query, context).build();
}

std::string filterCountSql(const std::string& condition, std::int64_t cap) {
  return "SELECT COUNT(*) AS n FROM (\n    SELECT m.id FROM message m WHERE m.erased = 0 AND " +
         condition + " LIMIT " + std::to_string(cap) + "\n)";
}

}  // namespace ambervane
