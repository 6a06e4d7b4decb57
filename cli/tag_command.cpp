#include "base/text.h"
#include "cli/commands.h"
#include "query/search_query_parser.h"
#include "search/search_archive.h"
#include "store/catalog_annotations.h"
#include "store/tagging.h"

namespace ambervane {
namespace {

/// The value of an option; empty when it was given without one.
std::optional<std::string> nameGiven(const Arguments& arguments, const std::string& option) {
  if (!arguments.has(option)) return std::nullopt;
  return arguments.option(option).value_or("");
}

int listTags(const Arguments& arguments, Console& console) {
  const auto archive = openArchive(arguments, console, OpenMode::readOnly);
  const auto tags = CatalogAnnotations(archive->catalog()).tags();
  if (tags.empty()) console.out << "No tags.\n";
  for (const ArchiveTag& tag : tags) {
    console.out << tag.messageCount << " messages   [" << printable(tag.colour) << "] "
                << printable(tag.name) << "\n";
  }
  archive->close();
  return kExitSuccess;
}

}  // namespace

int tagCommand(const Arguments& arguments, Console& console) {
  const auto add = nameGiven(arguments, "add");
  const auto remove = nameGiven(arguments, "remove");
  if (arguments.has("list") || (!add && !remove)) return listTags(arguments, console);
  const auto line = arguments.option("query");
  // Without one the whole archive would be meant, which nobody says by leaving something out.
  if (!line) throw CLIError::usage("--query <q> is required");

  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  const auto ids = selectedMessageIDs(*archive, SearchQueryParser::parse(*line));
  const std::string by = AuditJournal::defaultActor();
  if (ids.empty()) {
    console.out << "The query matched nothing; no tag was changed.\n";
  } else if (add) {
    const ArchiveTag tag =
        applyTag(*archive, *add, arguments.option("colour").value_or("blue"), ids, by);
    console.out << "Tagged " << ids.size() << " messages “" << printable(tag.name) << "”.\n";
  } else {
    const auto tag = CatalogAnnotations(archive->catalog()).tag(requiredTagName(*remove));
    if (!tag) throw CLIError::usage("no tag called “" + printable(*remove) + "”");
    const std::int64_t removed = removeTag(*archive, *tag, ids, by);
    console.out << "Removed “" << printable(tag->name) << "” from " << removed << " messages.\n";
  }
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
