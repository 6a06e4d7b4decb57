#include "store/archive_error.h"

#include "base/text.h"

namespace ambervane {
namespace {

struct Words {
  LocalizedMessage operator()(const ArchiveError::NotAnArchive& r) const {
    return {"%@ is not a Ambervane archive", {printable(r.path)}};
  }
  LocalizedMessage operator()(const ArchiveError::DestinationNotEmpty& r) const {
    return {
        "There is already something at %@. An archive is a folder of its own: choose a name that "
        "is "
        "not in use, or move what is there out of the way first.",
        {printable(r.path)}};
  }
  LocalizedMessage operator()(const ArchiveError::VersionUnsupported& r) const {
    return {
        "This archive is in format version %1$@ and needs a build that understands version %2$@; "
        "this one understands %3$@. Open it with a newer Ambervane — the archive is intact, this "
        "build simply cannot read it correctly and will not guess.",
        {std::to_string(r.found), std::to_string(r.needs), std::to_string(r.have)}};
  }
  LocalizedMessage operator()(const ArchiveError::LockedByAnother& r) const {
    return {
        "This archive is already open for writing.%@ Close it there, or open a read-only copy to "
        "look without changing anything.",
        {r.holder ? " It is open in " + printable(*r.holder) + "." : ""}};
  }
  LocalizedMessage operator()(const ArchiveError::LockUnavailable& r) const {
    return {
        "The archive could not be locked: %@. Archives on network shares often cannot be locked "
        "reliably — keep the archive on a local disk.",
        {r.reason}};
  }
  LocalizedMessage operator()(const ArchiveError::MessageMissing& r) const {
    return {"Message %@ is not in the catalog", {std::to_string(r.id)}};
  }
  LocalizedMessage operator()(const ArchiveError::Erased& r) const {
    return {"Message %@ was erased; its content key has been destroyed", {std::to_string(r.id)}};
  }
  LocalizedMessage operator()(const ArchiveError::OnLegalHold& r) const {
    return {"Message %@ is under an active legal hold", {std::to_string(r.id)}};
  }
  LocalizedMessage operator()(const ArchiveError::BlobMissing& r) const {
    return {"Attachment blob %@ is missing from the pack files", {r.hash}};
  }
  LocalizedMessage operator()(const ArchiveError::BlobErased& r) const {
    return {"Attachment %@ was erased; its key no longer exists", {r.hash}};
  }
  LocalizedMessage operator()(const ArchiveError::ReadOnly&) const {
    return {"The archive is open read-only", {}};
  }
  LocalizedMessage operator()(const ArchiveError::NotEnoughSpace& r) const {
    return {"%1$@ needs about %2$@ of free space and only %3$@ is available.",
            {r.what, r.needed, r.available}};
  }
};

}  // namespace

LocalizedMessage ArchiveError::message() const { return std::visit(Words{}, reason_); }

}  // namespace ambervane
