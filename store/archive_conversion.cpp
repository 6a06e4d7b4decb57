#include "store/archive_conversion.h"

#include <system_error>

#include "base/text.h"
#include "store/ingest.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

/// The folder above `url` that is there already.
fs::path standingAbove(const fs::path& url) {
  fs::path folder = fs::absolute(url).parent_path();
  std::error_code ignored;
  while (!fs::exists(folder, ignored) && folder != folder.parent_path()) {
    folder = folder.parent_path();
  }
  return folder;
}

void recordConversion(MailArchive& source, MailArchive& made, const MergeOutcome& merged) {
  const std::string messages = std::to_string(merged.messages);
  const std::string effort(rawValue(made.manifest().compressionEffort));
  made.journal().append(
      AuditAction::policyChanged, "conversion",
      {{"action", "converted"},
       {"from_archive", merged.sourceArchiveID},
       {"from_compression", std::string(rawValue(source.manifest().compressionEffort))},
       {"to_compression", effort},
       {"messages", messages}});
  made.sealNow();
  if (source.readOnly()) return;
  source.journal().append(AuditAction::messageExported, std::nullopt,
                          {{"action", "converted"},
                           {"to_archive", made.manifest().archiveID},
                           {"to_compression", effort},
                           {"messages", messages}});
  source.sealNow();
}

}  // namespace

LocalizedMessage ConversionError::message() const {
  struct Words {
    LocalizedMessage operator()(const DestinationExists& r) const {
      return {
          "%@ already exists. A conversion writes a new archive and never writes into one that is "
          "already there.",
          {printable(r.path)}};
    }
  };
  return std::visit(Words{}, reason_);
}

ConversionOutcome convertArchive(MailArchive& source, const fs::path& url, CompressionEffort effort,
                                 const std::optional<std::string>& name, const std::string& by,
                                 const MergeProgress& progress,
                                 const std::function<bool()>& shouldCancel,
                                 ArchiveEnvironment environment) {
  std::error_code error;
  if (fs::symlink_status(url, error).type() != fs::file_type::not_found) {
    throw ConversionError(ConversionError::DestinationExists{url.native()});
  }
  requireRoomAt(standingAbove(url), source.url(), "Converting an archive");
  const auto made = MailArchive::create(url, name.value_or(source.manifest().name), source.policy(),
                                        effort, std::move(environment));
  MergeOutcome merged = mergeArchive(*made, source, by, progress, shouldCancel);
  if (!merged.cancelled) recordConversion(source, *made, merged);
  made->close();
  return {.messages = merged.messages,
          .duplicates = merged.duplicates,
          .failed = merged.failed,
          .tags = merged.tags,
          .notes = merged.notes,
          .holds = merged.holds,
          .sourceArchiveID = std::move(merged.sourceArchiveID),
          .sourceChainHead = std::move(merged.sourceChainHead),
          .destination = url,
          .evidencePath = std::move(merged.evidencePath),
          .failures = std::move(merged.failures),
          .cancelled = merged.cancelled};
}

}  // namespace ambervane
