#include <set>

#include "base/text.h"
#include "cli/commands.h"

namespace ambervane {
namespace {

std::set<ComplianceRegime> regimesFrom(const std::string& text) {
  std::set<ComplianceRegime> regimes = regimesFromList(text);
  if (regimes.empty()) regimes.insert(ComplianceRegime::swissGeBueV);
  return regimes;
}

}  // namespace

int create(const Arguments& arguments, Console& console) {
  if (arguments.positional.empty() || arguments.positional[0].empty()) {
    throw CLIError::usage("missing archive path");
  }
  const std::filesystem::path path = standardizedPath(arguments.positional[0]);
  const std::string name = arguments.option("name").value_or(pathText(path.stem()));
  const RetentionPolicy policy(regimesFrom(arguments.option("regimes").value_or("ch-gebuev")));
  const CompressionEffort effort =
      compressionEffortFromRawValue(arguments.option("compression").value_or("balanced"))
          .value_or(CompressionEffort::balanced);

  const auto archive = MailArchive::create(path, name, policy, effort);
  console.out << "Created archive " << printable(archive->manifest().name) << " at "
              << printable(path.native()) << "\n";
  for (const std::string& line : policy.summary()) console.out << "  " << line << "\n";
  console.out << "  Compression: " << label(effort) << "\n"
              << "  Signing key: SHA-256 " << archive->sealer().publicKeyFingerprint() << "\n";
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
