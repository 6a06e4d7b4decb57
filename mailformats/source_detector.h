#ifndef AMBERVANE_MAILFORMATS_SOURCE_DETECTOR_H_
#define AMBERVANE_MAILFORMATS_SOURCE_DETECTOR_H_

#include <filesystem>
#include <memory>
#include <optional>

#include "mailformats/access_problem.h"
#include "mailformats/mail_source_kind.h"
#include "mailformats/message_importer.h"

/// Tells what kind of mail store a path holds, so that the user names a path and never a format.
namespace ambervane::SourceDetector {

/// Never fails: what cannot be read makes a rule not hold, and the worst answer is `unknown`, or
/// `emlFile` for a file. Of a file at most 8 bytes are read (a portable export's manifest apart).
MailSourceKind detect(const std::filesystem::path& path);

/// The reader for `path` as a store of that kind; nothing is read yet. Throws ImportError for a
/// kind without a reader.
std::unique_ptr<MessageImporter> importer(const std::filesystem::path& path, MailSourceKind kind);

/// Where the mail of `path` lies: "messages" inside an export of this program, else `path` itself.
std::filesystem::path mailFolder(const std::filesystem::path& path);

/// Whether the system refuses to let this program read `path` or, when it is a folder, the first
/// files met in it. Absent for a path that does not exist, and for every failure that is no
/// refusal.
std::optional<AccessProblem> accessProblem(const std::filesystem::path& path);

}  // namespace ambervane::SourceDetector

#endif  // AMBERVANE_MAILFORMATS_SOURCE_DETECTOR_H_
