#ifndef AMBERVANE_STORE_ARCHIVE_CONVERSION_H_
#define AMBERVANE_STORE_ARCHIVE_CONVERSION_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "base/localized_message.h"
#include "store/archive_merge.h"

namespace ambervane {

class ConversionError final : public TranslatableError {
 public:
  struct DestinationExists {
    std::string path;
  };
  using Reason = std::variant<DestinationExists>;
  explicit ConversionError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// What came into the new archive; counted as in MergeOutcome.
struct ConversionOutcome {
  std::int64_t messages = 0;
  std::int64_t duplicates = 0;
  std::int64_t failed = 0;
  std::int64_t tags = 0;
  std::int64_t notes = 0;
  std::int64_t holds = 0;
  std::string sourceArchiveID;
  std::string sourceChainHead;
  std::optional<std::filesystem::path> destination;
  std::optional<std::filesystem::path> evidencePath;
  std::vector<std::string> failures;  ///< the first messages that failed, for people
  bool cancelled = false;  ///< the new archive then lacks mail, and nothing says "converted"
};

/// Makes a second archive at `url` with the mail of `source`, stored with another effort or under
/// another name, and closes it. Nothing of the source changes but that its journal, where it can be
/// written, says what was done. Throws ConversionError when anything stands at `url`, and what
/// creating and merging throw; a new archive that lacks mail is then left where it is.
ConversionOutcome convertArchive(MailArchive& source, const std::filesystem::path& url,
                                 CompressionEffort effort, const std::optional<std::string>& name,
                                 const std::string& by, const MergeProgress& progress = nullptr,
                                 const std::function<bool()>& shouldCancel = nullptr,
                                 ArchiveEnvironment environment = {});

}  // namespace ambervane

#endif  // AMBERVANE_STORE_ARCHIVE_CONVERSION_H_
