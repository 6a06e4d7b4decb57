#include <fmt/format.h>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/message_list.h"
#include "query/search_query_parser.h"
#include "search/search_archive.h"
#include "search/search_index.h"

namespace ambervane {
namespace {

SearchSort sortFrom(const Arguments& arguments) {
  const std::string word = arguments.option("sort").value_or("");
  if (word == "relevance") return SearchSort::relevance;
  if (word == "size") return SearchSort::sizeDescending;
  return SearchSort::dateDescending;
}

}  // namespace

int search(const Arguments& arguments, Console& console) {
  if (arguments.positional.size() < 2) {
    throw CLIError::usage("usage: ambervane search <archive> <query>");
  }
  SearchQuery query = SearchQueryParser::parse(wordsFrom(arguments, 1));
  query.limit = parseInteger(arguments.option("limit").value_or("")).value_or(kDefaultMessageLimit);
  query.sort = sortFrom(arguments);
  const auto archive = openArchive(arguments, console, OpenMode::readOnly);
  const SearchResult result = searchArchive(*archive, query, SearchRanks::whenOrdering);
  printHits(result, console.out);
  if (!query.isEmpty()) noteUnrecorded(*archive, console.out);
  archive->close();
  return kExitSuccess;
}

int reindex(const Arguments& arguments, Console& console) {
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  noteMissingDocumentHelper(*archive, console);
  ReindexSummary summary;
  {
    ProgressLine line(console);
    summary = rebuildSearchIndex(*archive, [&](std::int64_t done, std::int64_t total) {
      if (line.isDue()) line.show(fmt::format("reindexed {}/{}", done, total));
    });
  }
  if (summary.unreadable > 0) {
    console.err << "Note: " << summary.unreadable
                << " messages could not be read and are not in the index.\n";
  }
  console.out << "Rebuilt the search index over " << summary.messages << " messages.\n";
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
