#include <fmt/format.h>

#include <algorithm>

#include "base/calendar.h"
#include "base/text.h"
#include "cli/commands.h"
#include "cli/display_columns.h"
#include "cli/message_list.h"
#include "compliance/erasure.h"
#include "query/query_builder.h"
#include "query/search_query_parser.h"
#include "store/query_context.h"

namespace ambervane {
namespace {

constexpr std::size_t kListedMessages = 15;

/// Every address given, by however many options and with commas between them.
std::vector<std::string> addressesGiven(const Arguments& arguments) {
  std::vector<std::string> addresses;
  const auto given = arguments.multiOptions.find("participant");
  if (given == arguments.multiOptions.end()) return addresses;
  for (const std::string& value : given->second) {
    for (const std::string_view word : splitOmittingEmpty(value, ",")) {
      // A blank one would be part of every address.
      if (const auto address = trim(word); !address.empty()) addresses.emplace_back(address);
    }
  }
  return addresses;
}

[[noreturn]] void failWholeArchive() {
  throw CLIError::usage("--participant <address> (repeatable) or --query <q> is required");
}

/// Messages with any of the addresses, and within them those the line selects. Throws CLIError when
/// nothing is asked for.
SearchQuery requestedMessages(const std::vector<std::string>& addresses,
                              const std::optional<std::string>& line) {
  SearchQuery query;
  if (line) query = SearchQueryParser::parse(*line);
  if (!addresses.empty()) {
    std::vector<FilterNode> alternatives;
    for (const std::string& address : addresses) {
      alternatives.push_back(
          FilterNode::rule(FilterField::participant, FilterOperator::contains, address));
    }
    FilterNode any = FilterNode::group(FilterMatch::any, std::move(alternatives));
    query.filter = query.filter
                       ? FilterNode::group(FilterMatch::all, {*query.filter, std::move(any)})
                       : std::move(any);
  }
  if (query.isEmpty()) failWholeArchive();
  query.includeErased = true;
  return query;
}

void printReview(const ErasureReview& review, std::ostream& out) {
  out << "Matches               : " << review.erasableCount << "\n"
      << "Blocked by legal hold : " << review.heldBackCount << "\n"
      << "Already erased        : " << review.alreadyErasedCount << "\n";
  if (review.withinRetentionCount > 0) {
    out << "Still within retention: " << review.withinRetentionCount
        << "  ← erasing these overrides a statutory period\n";
  }
  const std::size_t listed = std::min(kListedMessages, review.erasable.size());
  for (std::size_t i = 0; i < listed; ++i) {
    const MessageRow& row = review.erasable[i];
    out << fmt::format("  {:<7} ", row.id)
        << padded(row.sentAt ? formatDate(*row.sentAt, "yyyy-MM-dd") : "?", 10) << "  "
        << fitted(displaySender(row), kSenderColumns) << "  "
        << cutToCharacters(printable(row.subject), kShortSubjectCharacters) << "\n";
  }
  const auto rest = review.erasableCount - static_cast<std::int64_t>(listed);
  if (rest > 0) out << "  … and " << rest << " more\n";
}

void carryOut(MailArchive& archive, const Arguments& arguments, const ErasureReview& review,
              Console& console) {
  const DisposalResult result =
      eraseApproved(archive, {.messageIDs = review.erasableIDs,
                              .approvedBy = arguments.option("approved-by").value_or(""),
                              .reason = arguments.option("reason").value_or(""),
                              .confirmation = arguments.option("confirm").value_or("")});
  console.out << "Erased                : " << result.erased << "\n"
              << "Skipped, on hold      : " << result.skippedOnHold << "\n"
              << "Skipped, already gone : " << result.skippedAlreadyErased << "\n";
  noteRemnants(archive, result.isForgotten, console);
}

}  // namespace

int request(const Arguments& arguments, Console& console) {
  const auto addresses = addressesGiven(arguments);
  const SearchQuery query = requestedMessages(addresses, arguments.option("query"));
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  // A word that cannot be read narrows nothing, and nobody asks for the whole archive that way.
  if (buildQuery(query, queryContext(*archive)).where.empty()) failWholeArchive();
  console.out << "Addresses             : " << printable(join(addresses, ", ")) << "\n";
  const ErasureReview review = reviewErasure(*archive, query, archive->now());
  printReview(review, console.out);
  if (arguments.has("erase")) {
    console.out << std::flush;
    carryOut(*archive, arguments, review, console);
  } else {
    console.out << "Nothing was erased.\nTo carry it out, after reviewing the list:\n"
                   "  ambervane request <archive> --participant … --erase --approved-by \"Name\" "
                   "--reason \"…\" --confirm DISPOSE\n";
  }
  noteUnrecorded(*archive, console.out);
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
