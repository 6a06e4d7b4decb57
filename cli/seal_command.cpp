#include "base/calendar.h"
#include "base/text.h"
#include "cli/commands.h"

namespace ambervane {
namespace {

void printTimestamp(const ChainSeal& seal, std::ostream& out) {
  out << "  timestamp  ";
  if (seal.timestampToken) {
    out << (seal.timestampedAt ? iso8601(*seal.timestampedAt) : "not stated") << " by "
        << printable(seal.timestampAuthority.value_or("")) << "\n";
    if (seal.timestampedAt) {
      out << "             this time comes from the authority, not from this machine's clock\n";
    }
  } else if (seal.timestampFailure) {
    out << "none — " << printable(*seal.timestampFailure) << "\n"
        << "             the seal is valid but dates itself by this machine's clock\n";
  } else {
    out << "none — no authority is configured for this archive\n";
  }
}

}  // namespace

int sealCommand(const Arguments& arguments, Console& console) {
  const auto archive = openArchive(arguments, console, OpenMode::readWrite);
  if (const auto authority = archive->sealer().timestampAuthority()) {
    console.out << "Asking " << *authority << " for a timestamp…\n" << std::flush;
  }
  const ChainSeal seal = archive->sealNow();
  console.out << "Seal " << seal.sealNumber << " written over " << seal.entryCount << " entries, "
              << seal.messageCount << " messages.\n"
              << "  head       " << seal.chainHead.substr(0, 16) << "…\n";
  printTimestamp(seal, console.out);
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
