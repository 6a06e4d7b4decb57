#include "base/text.h"
#include "cli/commands.h"
#include "compliance/retention.h"

namespace ambervane {

int reclassifyCommand(const Arguments& arguments, Console& console) {
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  std::map<std::string, std::int64_t> counts;
  {
    ProgressLine line(console);
    counts = reclassify(*archive, [&line](std::int64_t done, std::int64_t total) {
      if (line.isDue()) {
        line.show("reclassified " + std::to_string(done) + "/" + std::to_string(total));
      }
    });
  }
  for (const auto& [identifier, count] : counts) {
    console.out << "  " << printable(identifier) << "  " << count << "\n";
  }
  console.out << "Reclassified. Nothing was deleted.\n";
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
