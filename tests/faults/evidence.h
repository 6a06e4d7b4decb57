#ifndef AMBERVANE_TESTS_FAULTS_EVIDENCE_H_
#define AMBERVANE_TESTS_FAULTS_EVIDENCE_H_

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/bytes.h"

namespace ambervane {

// What an archive shows to somebody who does not ask the program. Each function that judges gives
// what is wrong, in words; nothing wrong is an empty list.

using Problems = std::vector<std::string>;

/// What the catalog says, told without identifiers and times of this day, so that two archives
/// that went different ways to the same end say the same.
struct Holdings {
  std::set<std::string> messages;  ///< digests
  std::set<std::string> erased;    ///< those of them that say they are
  std::set<std::string> facts;
  /// Wrapped content keys by their owners, messages and attachments.
  std::map<std::string, Bytes> keys;
};
Holdings readHoldings(const std::filesystem::path& archive);

/// Reads every message that is not erased, and tries those that are.
Problems judgeMessages(const std::filesystem::path& archive);
/// Every line of the journal hashed anew, by its description and not by the program's code. Lines
/// that are no entries may stand there only when `mayBeTorn`.
Problems judgeChain(const std::filesystem::path& archive, bool mayBeTorn);
/// Files that nothing may change but by adding to them: content by name.
std::map<std::string, Bytes> readHistory(const std::filesystem::path& archive);
Problems judgeHistory(const std::map<std::string, Bytes>& before,
                      const std::map<std::string, Bytes>& after);
/// Files that an archive at rest does not have.
Problems judgeTidiness(const std::filesystem::path& archive);
/// The checks that `verify` says have failed.
std::set<std::string> failedChecks(const std::string& report);

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_FAULTS_EVIDENCE_H_
