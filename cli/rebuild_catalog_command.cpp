#include <fmt/format.h>

#include "base/text.h"
#include "cli/commands.h"
#include "store/catalog_rebuild.h"

namespace ambervane {

int rebuildCatalogCommand(const Arguments& arguments, Console& console) {
  const auto archive = openArchive(arguments, console, OpenMode::rebuild);
  const std::string keptAs = nameOfCatalogSetAside(*archive);
  console.out << "Rebuilding the catalog from the pack files. The old database is kept as "
              << keptAs << ".\n"
              << std::flush;
  noteMissingDocumentHelper(*archive, console);
  RebuildProgress result;
  {
    ProgressLine line(console);
    result = rebuildCatalog(*archive, keptAs, [&line](const RebuildProgress& state) {
      if (!line.isDue()) return;
      line.show(fmt::format("pack {}/{} — {} messages, {} blobs, {} skipped", state.packsDone,
                            state.packsTotal, state.messages, state.blobs, state.skipped));
    });
  }
  console.out << "Messages : " << result.messages << "\nBlobs    : " << result.blobs
              << "\nSkipped  : " << result.skipped << "\n";
  if (!result.note.empty()) console.out << "Note     " << result.note << "\n";
  for (const std::string& problem : result.problems) {
    console.err << "  ! " << printable(problem) << "\n";
  }
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
