#include <optional>
#include <vector>

#include "base/digest.h"
#include "base/text.h"
#include "cli/commands.h"
#include "cli/message_list.h"
#include "query/search_query_parser.h"
#include "search/smart_folders.h"
#include "store/catalog_annotations.h"

namespace ambervane {
namespace {

constexpr const char* kUsage = "usage: ambervane smart <archive> list|add|show|count|delete […]";
constexpr const char* kAddUsage = "usage: ambervane smart <archive> add <name> <query…>";
constexpr const char* kShowUsage = "usage: ambervane smart <archive> show <name>";

std::vector<SmartFolder> foldersOf(MailArchive& archive) {
  return CatalogAnnotations(archive.catalog()).smartFolders();
}

/// The folder of exactly this name, else of this name in other letters.
std::optional<SmartFolder> findFolder(MailArchive& archive, const std::string& name) {
  std::optional<SmartFolder> similar;
  for (SmartFolder& folder : foldersOf(archive)) {
    if (folder.name == name) return std::move(folder);
    if (!similar && lowercase(folder.name) == lowercase(name)) similar = std::move(folder);
  }
  return similar;
}

SmartFolder requireFolder(MailArchive& archive, const std::string& name) {
  auto folder = findFolder(archive, name);
  if (!folder) throw CLIError::usage("no smart folder called “" + printable(name) + "”");
  return *std::move(folder);
}

void printCount(MailArchive& archive, const SmartFolder& folder, SmartFolderCounting counting,
                std::ostream& out) {
  const SmartFolderCount count = smartFolderCount(archive, folder, counting);
  out << printable(folder.name) << "  " << count.count << (count.isExact ? "" : "+") << "\n";
}

void list(MailArchive& archive, Console& console) {
  const auto folders = foldersOf(archive);
  if (folders.empty()) console.out << "No smart folders.\n";
  for (const SmartFolder& folder : folders) {
    printCount(archive, folder, SmartFolderCounting::current, console.out);
  }
}

void recount(MailArchive& archive, const std::optional<std::string>& name, Console& console) {
  const auto folders =
      name ? std::vector<SmartFolder>{requireFolder(archive, *name)} : foldersOf(archive);
  if (folders.empty()) console.out << "No smart folders.\n";
  for (const SmartFolder& folder : folders) {
    printCount(archive, folder, SmartFolderCounting::refreshing, console.out);
  }
}

void add(MailArchive& archive, const std::string& name, const std::string& line, Console& console) {
  auto filter = filterFromQuery(SearchQueryParser::parse(line));
  if (!filter) throw CLIError::usage("that query has no usable rules: " + printable(line));
  if (findFolder(archive, name)) {
    throw CLIError::usage("there is already a smart folder called “" + printable(name) + "”");
  }
  const Date now = archive.now();
  SmartFolder folder{.id = randomUuid(),
                     .name = repairedUtf8(trim(name)),
                     .icon = "gearshape.2",
                     .filter = *std::move(filter),
                     .position = static_cast<std::int64_t>(foldersOf(archive).size()),
                     .createdAt = now,
                     .updatedAt = now};
  try {
    saveSmartFolder(archive, folder);
  } catch (const SmartFolderError& error) {
    if (error.reason() != SmartFolderError::Reason::noUsableRules) throw;
    throw CLIError::usage("that query has no usable rules: " + printable(line));
  }
  console.out << "Saved smart folder “" << printable(folder.name)
              << "”: " << printable(folder.filter.described()) << "\n";
}

void showFolder(MailArchive& archive, const Arguments& arguments, Console& console) {
  const auto number = [&arguments](const char* option, std::int64_t otherwise) {
    return parseInteger(arguments.option(option).value_or("")).value_or(otherwise);
  };
  const SmartFolder folder = requireFolder(archive, arguments.positional[2]);
  const SearchQuery query =
      folder.query(number("limit", kDefaultMessageLimit), number("offset", 0));
  printHits(searchArchive(archive, query, SearchRanks::whenOrdering), console.out);
  noteUnrecorded(archive, console.out);
}

}  // namespace

int smart(const Arguments& arguments, Console& console) {
  const auto& words = arguments.positional;
  const std::string action = words.size() < 2 ? "" : words[1];
  if (action == "add" && words.size() < 4) throw CLIError::usage(kAddUsage);
  if (action == "show" && words.size() < 3) throw CLIError::usage(kShowUsage);
  const bool isKnown = action == "list" || action == "add" || action == "show" ||
                       action == "count" || (action == "delete" && words.size() > 2);
  if (!isKnown) throw CLIError::usage(kUsage);

  const auto archive =
      openArchive(arguments, console, action == "show" ? OpenMode::readOnly : OpenMode::readWrite);
  const auto name = words.size() > 2 ? std::optional(words[2]) : std::nullopt;
  if (action == "list") {
    list(*archive, console);
  } else if (action == "add") {
    add(*archive, *name, wordsFrom(arguments, 3), console);
  } else if (action == "show") {
    showFolder(*archive, arguments, console);
  } else if (action == "count") {
    recount(*archive, name, console);
  } else {
    const SmartFolder folder = requireFolder(*archive, *name);
    deleteSmartFolder(*archive, folder.id);
    console.out << "Deleted smart folder “" << printable(folder.name) << "”.\n";
  }
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
