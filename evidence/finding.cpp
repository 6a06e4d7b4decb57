#include "evidence/finding.h"

#include "base/text.h"

namespace ambervane {
namespace {

std::string number(std::int64_t value) { return std::to_string(value); }

/// The words of each case; texts that are ours and get filled in are put into `language` at once.
struct Words {
  ReportLanguage language;

  /// A schedule such as "every Monday at 07:30", the name of its day included.
  std::string schedule(LocalizedMessage text) const {
    for (std::string& argument : text.arguments) argument = localized(argument, language);
    return localized(text, language);
  }

  LocalizedMessage operator()(const Finding::ChainIntact& f) const {
    return {"Chain intact across %@ entries", {number(f.entries)}};
  }
  LocalizedMessage operator()(const Finding::ChainMalformed& f) const {
    return {"Malformed journal entry at position %@", {number(f.at)}};
  }
  LocalizedMessage operator()(const Finding::ChainSequenceGap& f) const {
    return {"Sequence gap: expected %1$@, found %2$@", {number(f.expected), number(f.found)}};
  }
  LocalizedMessage operator()(const Finding::ChainBreak& f) const {
    return {"Chain break at entry %@", {number(f.at)}};
  }
  LocalizedMessage operator()(const Finding::ChainEntryModified& f) const {
    return {"Entry %@ has been modified", {number(f.at)}};
  }
  LocalizedMessage operator()(const Finding::AllMessagesAsReceived& f) const {
    return {"All %@ messages are stored as the mail server delivered them.", {number(f.count)}};
  }
  LocalizedMessage operator()(const Finding::SomeMessagesReconstructed& f) const {
    return {
        "%1$@ of %2$@ messages were rebuilt from fields rather than received as messages (from: "
        "%3$@). Their digests are digests of the rendering, not of anything a mail server sent; "
        "the remainder are stored as delivered.",
        {number(f.reconstructed), number(f.of), localized(f.sources, language)}};
  }
  LocalizedMessage operator()(const Finding::SealsVerify& f) const {
    return {"%1$@ seals verify against the archive key; the latest covers %2$@ entries",
            {number(f.count), number(f.entries)}};
  }
  LocalizedMessage operator()(const Finding::SealsFailVerification& f) const {
    return {"%1$@ of %2$@ seals fail signature verification", {number(f.bad), number(f.of)}};
  }
  LocalizedMessage operator()(const Finding::SigningKeys& f) const {
    return {
        "%1$@ signing key(s) across %2$@ seals; each seal verifies against the key it embeds. "
        "Record the rotation in the Verfahrensdokumentation.",
        {number(f.keys), number(f.seals)}};
  }
  LocalizedMessage operator()(const Finding::SealAnchored& f) const {
    return {"The latest seal anchors entry %1$@; %2$@ entries added since",
            {number(f.entry), number(f.added)}};
  }
  LocalizedMessage operator()(const Finding::SealNotAnchored& f) const {
    return {"The latest seal's head does not match journal entry %@", {number(f.entry)}};
  }
  LocalizedMessage operator()(const Finding::PackDigestFailures& f) const { return {f.text, {}}; }
  LocalizedMessage operator()(const Finding::PacksImmutable& f) const {
    return {
        "%@ sealed packs carry the immutable flag. This is the macOS `uchg` flag: it stops "
        "accidental modification, and a user with root can clear it — so it is not an unalterable "
        "medium under GeBüV Art. 9 Abs. 1 lit. a.",
        {number(f.count)}};
  }
  LocalizedMessage operator()(const Finding::PacksWritable& f) const {
    return {"%@ sealed packs are writable", {number(f.count)}};
  }
  LocalizedMessage operator()(const Finding::MessagesRehashed& f) const {
    if (f.deduplicated <= 0) {
      return {
          "%@ messages reassembled from storage and re-hashed byte-for-byte against the digest "
          "taken at ingest",
          {number(f.checked)}};
    }
    return {
        "%1$@ messages reassembled from storage and re-hashed byte-for-byte against the digest "
        "taken at ingest, including %2$@ deduplicated attachments re-inlined into every message "
        "that carries them",
        {number(f.checked), number(f.deduplicated)}};
  }
  LocalizedMessage operator()(const Finding::MessagesFailedRehash& f) const {
    return {"%1$@ of %2$@ messages no longer match their stored digest",
            {number(f.failures), number(f.checked)}};
  }
  LocalizedMessage operator()(const Finding::ErasurePossible& f) const {
    return {"Per-message keys in place; %@ messages erased so far", {number(f.erased)}};
  }
  LocalizedMessage operator()(const Finding::DuplicateCopyConfigured& f) const {
    return {"Mirror configured at %@", {f.path}};
  }
  LocalizedMessage operator()(const Finding::CatalogDatabase& f) const {
    const std::vector<std::string> arguments = {localized(f.detail, language), f.fileSystem};
    if (f.recoverable) {
      return {
          "%1$@ on %2$@ — every pack has a recovery sidecar, so the catalog can be rebuilt from "
          "the pack files if it is ever lost",
          arguments};
    }
    return {
        "%1$@ on %2$@ — some packs have no recovery sidecar; a rebuild would recover their "
        "messages but not their mailbox membership",
        arguments};
  }
  LocalizedMessage operator()(const Finding::NetworkVolume& f) const {
    return {
        "The archive is on a network volume (%@). File locking over SMB, NFS and AFP is unreliable "
        "and is the usual cause of database corruption. Keep the archive on local storage and back "
        "it up to the network instead.",
        {f.fileSystem}};
  }
  LocalizedMessage operator()(const Finding::IndexCovers& f) const {
    if (!f.selectiveRemoval) return {"FTS5 index covers %@ messages", {number(f.messages)}};
    return {"FTS5 index covers %@ messages and supports selective removal", {number(f.messages)}};
  }
  LocalizedMessage operator()(const Finding::TimestampsOnAllSeals& f) const {
    return {"All %1$@ seals carry an RFC 3161 token from %2$@", {number(f.count), f.issuers}};
  }
  LocalizedMessage operator()(const Finding::TimestampsMissing& f) const {
    std::vector<std::string> arguments = {number(f.missing), number(f.of)};
    if (!f.lastFailure) {
      return {
          "%1$@ of %2$@ seals are signed with this machine's clock and carry no external "
          "timestamp. A clock can be set backwards by anyone with administrator rights, so the "
          "seals show that nothing changed relative to itself — not when it was written.",
          std::move(arguments)};
    }
    arguments.push_back(*f.lastFailure);
    return {
        "%1$@ of %2$@ seals are signed with this machine's clock and carry no external timestamp. "
        "A clock can be set backwards by anyone with administrator rights, so the seals show that "
        "nothing changed relative to itself — not when it was written. The last attempt failed: "
        "%3$@",
        std::move(arguments)};
  }
  LocalizedMessage operator()(const Finding::SecondCopyRecorded& f) const {
    return {
        "A copy is kept at %@. The archive records the location; it cannot check that the copy is "
        "current.",
        {f.location}};
  }
  LocalizedMessage operator()(const Finding::ProcedureRecorded& f) const {
    return {"Recorded as %@.", {f.reference}};
  }
  LocalizedMessage operator()(const Finding::LastControl& f) const {
    return {"Last recorded control %1$@ by %2$@.", {f.when, f.by}};
  }
  LocalizedMessage operator()(const Finding::ControlOverdue& f) const {
    return {"The last recorded control was %1$@ by %2$@, more than a year ago.", {f.when, f.by}};
  }
  LocalizedMessage operator()(const Finding::CaptureScheduled& f) const {
    return {"Mail is collected automatically (%1$@); the last successful run was %2$@.",
            {schedule(f.schedule), f.lastSuccess}};
  }
  LocalizedMessage operator()(const Finding::CaptureScheduledButStale& f) const {
    std::vector<std::string> arguments = {schedule(f.schedule)};
    if (f.lastSuccess) arguments.push_back(*f.lastSuccess);
    if (f.failure) arguments.push_back(*f.failure);
    if (f.lastSuccess && f.failure) {
      return {
          "Automatic collection is configured (%1$@) but has not succeeded since %2$@. An archive "
          "that appears to be tended and is not is worse than one nobody claims to tend. The last "
          "attempt reported: %3$@",
          std::move(arguments)};
    }
    if (f.lastSuccess) {
      return {
          "Automatic collection is configured (%1$@) but has not succeeded since %2$@. An archive "
          "that appears to be tended and is not is worse than one nobody claims to tend.",
          std::move(arguments)};
    }
    if (f.failure) {
      return {
          "Automatic collection is configured (%1$@) but has never succeeded. An archive that "
          "appears to be tended and is not is worse than one nobody claims to tend. The last "
          "attempt reported: %2$@",
          std::move(arguments)};
    }
    return {
        "Automatic collection is configured (%1$@) but has never succeeded. An archive that "
        "appears to be tended and is not is worse than one nobody claims to tend.",
        std::move(arguments)};
  }
  LocalizedMessage operator()(const Finding::PublisherIdentified& f) const {
    return {
        "The program that wrote to this archive is signed by %@. A third party can check that "
        "signature for themselves; it is not a claim the archive makes about itself.",
        {f.name}};
  }
  LocalizedMessage operator()(const Finding::PublisherAnonymous& f) const {
    return {
        "The program that wrote to this archive carries no publisher identity (%@). The records "
        "are unaffected — their digests and the audit chain stand on their own — but nothing ties "
        "them to a named vendor.",
        {localized(f.why, language)}};
  }
  LocalizedMessage operator()(const Finding::Verbatim& f) const {
    std::vector<std::string> texts;
    for (const LocalizedMessage& statement : f.statements) {
      texts.push_back(localized(statement, language));
    }
    return {join(texts, "; "), {}};
  }
  LocalizedMessage operator()(Finding::Fixed f) const;
};

LocalizedMessage Words::operator()(Finding::Fixed f) const {
  using enum Finding::Fixed;
  switch (f) {
    case noSealYet:
      return {"No seal has been written yet", {}};
    case packDigestsMatch:
      return {"All sealed pack files match their recorded SHA-256", {}};
    case noPackSealedYet:
      return {"No pack has been sealed yet — the active pack stays writable by design", {}};
    case contentKeysOpen:
      return {
          "The archive's master key opens the stored content keys, so every retained message is "
          "readable",
          {}};
    case contentKeysBroken:
      return {
          "The master key does not match the stored content keys — restore keys/master.key from "
          "backup",
          {}};
    case erasureImpossible:
      return {"Crypto-shredding is off, so GDPR Art. 17 erasure is not possible on WORM media", {}};
    case duplicateCopyMissing:
      return {"No duplicate copy configured — configure a mirror target", {}};
    case indexUnavailable:
      return {"Full-text search unavailable in this SQLite build; metadata search still works", {}};
    case secondCopyMissing:
      return {
          "No second copy is recorded. An archive on one disk is one disk failure away from not "
          "existing.",
          {}};
    case procedureMissing:
      return {
          "No procedural documentation is recorded for this archive. It has to describe how "
          "records reach the archive, who may do what, and how the archive is checked.",
          {}};
    case neverControlled:
      return {"No control has ever been recorded for this archive.", {}};
    case captureManualOnly:
      break;
  }
  return {
      "Mail is collected only when somebody presses a button. Whatever arrives between one sync "
      "and the next is in the archive only if someone remembers — and a fortnight nobody collected "
      "looks exactly like a fortnight nobody wrote.",
      {}};
}

}  // namespace

Finding::Finding(Value value) : value_(std::move(value)) {}
Finding::Finding(const Finding& other) = default;
Finding::Finding(Finding&& other) noexcept = default;
Finding& Finding::operator=(const Finding& other) = default;
Finding& Finding::operator=(Finding&& other) noexcept = default;
Finding::~Finding() = default;
bool Finding::operator==(const Finding& other) const = default;

LocalizedMessage Finding::message(ReportLanguage language) const {
  return std::visit(Words{language}, value_);
}

}  // namespace ambervane
