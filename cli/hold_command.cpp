#include "base/digest.h"
#include "base/text.h"
#include "cli/commands.h"
#include "compliance/holds.h"
#include "store/catalog_holds.h"

namespace ambervane {
namespace {

constexpr const char* kUsage = "usage: ambervane hold <archive> list|place|release";

/// What the option says, without blanks around it; empty when it was not given.
std::string said(const Arguments& arguments, const std::string& option) {
  return repairedUtf8(trim(arguments.option(option).value_or("")));
}

/// The values of an option that may be given more than once, without blank ones.
std::vector<std::string> allSaid(const Arguments& arguments, const std::string& option) {
  std::vector<std::string> values;
  const auto given = arguments.multiOptions.find(option);
  if (given == arguments.multiOptions.end()) return values;
  for (const std::string& value : given->second) {
    if (!trim(value).empty()) values.push_back(repairedUtf8(trim(value)));
  }
  return values;
}

void list(MailArchive& archive, Console& console) {
  const auto holds = CatalogHolds(archive.catalog()).holds(false);
  if (holds.empty()) console.out << "No legal holds.\n";
  for (const LegalHold& hold : holds) {
    console.out << (hold.isActive() ? "ACTIVE " : "LIFTED ") << ' ' << printable(hold.id) << "  "
                << printable(hold.name) << " — " << printable(hold.reason) << ": "
                << printable(hold.custodian) << "\n";
  }
}

void place(MailArchive& archive, const Arguments& arguments, Console& console) {
  LegalHold hold;
  hold.id = randomUuid();
  hold.name = said(arguments, "name");
  hold.reason = said(arguments, "reason");
  hold.custodian = said(arguments, "custodian");
  hold.createdAt = archive.now();
  hold.criteria.participants = allSaid(arguments, "participant");
  hold.criteria.folders = allSaid(arguments, "folder");
  hold.criteria.searchTerms = allSaid(arguments, "term");
  const HoldCoverage coverage = placeHold(archive, hold);
  console.out << "Placed hold " << printable(hold.name) << " over " << coverage.messages
              << " messages\n";
  if (hold.criteria.isEmpty()) {
    console.err << "Note: the hold has no criteria, so it covers nothing; give --participant, "
                   "--folder or --term.\n";
  }
  if (coverage.unreadable > 0) {
    console.err << "Note: " << coverage.unreadable
                << " of them cannot be read, so they are held as a precaution.\n";
  }
}

}  // namespace

int hold(const Arguments& arguments, Console& console) {
  const auto& words = arguments.positional;
  if (words.size() < 2) throw CLIError::usage(kUsage);
  const std::string& action = words[1];
  const bool isKnown = action == "list" || action == "place" || action == "release";
  if (!isKnown) throw CLIError::usage("unknown hold subcommand");
  if (action == "place" && said(arguments, "name").empty()) {
    throw CLIError::usage("--name <n> is required");
  }
  const std::string id = said(arguments, "id");
  const std::string reason = said(arguments, "reason");
  if (action == "release" && (id.empty() || reason.empty())) {
    throw CLIError::usage("--id <holdID> and --reason <r> are required");
  }

  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  if (action == "list") {
    list(*archive, console);
  } else if (action == "place") {
    place(*archive, arguments, console);
  } else {
    releaseHold(*archive, id, reason);
    console.out << "Released " << printable(id) << "\n";
  }
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
