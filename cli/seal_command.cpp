#include "cli/commands.h"

namespace ambervane {

int sealCommand(const Arguments& arguments, Console& console) {
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  const ChainSeal seal = archive->sealNow();
  console.out << "Seal " << seal.sealNumber << " written over " << seal.entryCount << " entries, "
              << seal.messageCount << " messages.\n"
              << "  head       " << seal.chainHead.substr(0, 16) << "…\n"
              << "  timestamp  none — no authority is configured for this archive\n";
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
