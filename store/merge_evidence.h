#ifndef AMBERVANE_STORE_MERGE_EVIDENCE_H_
#define AMBERVANE_STORE_MERGE_EVIDENCE_H_

#include <filesystem>
#include <string>

#include "store/mail_archive.h"

namespace ambervane {

/// What an archive keeps of another one whose mail it takes in, below "chain/imported".
struct MergeEvidence {
  std::filesystem::path path;
  std::string chainHead;  ///< of the journal as it was copied
};

/// Copies manifest, journal, seals and evidence of its own from `source` into a folder of `target`
/// named for the source, "chain-head.txt" last: a folder without it is unfinished, and used again.
/// One of the same head is used as it is; beside one of another head "-2", "-3" and so on is made.
/// No key is copied. Throws FileError, JsonError.
MergeEvidence makeEvidenceDirectory(MailArchive& target, MailArchive& source);

}  // namespace ambervane

#endif  // AMBERVANE_STORE_MERGE_EVIDENCE_H_
