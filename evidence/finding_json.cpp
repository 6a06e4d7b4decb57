#include "base/json.h"
#include "evidence/finding.h"

namespace ambervane {
namespace {

using nlohmann::json;

json named(const char* name, json&& value) {
  json object = json::object();
  object[name] = std::move(value);
  return object;
}

const char* nameOf(Finding::Fixed finding) {
  using enum Finding::Fixed;
  switch (finding) {
    case noSealYet:
      return "noSealYet";
    case packDigestsMatch:
      return "packDigestsMatch";
    case noPackSealedYet:
      return "noPackSealedYet";
    case contentKeysOpen:
      return "contentKeysOpen";
    case contentKeysBroken:
      return "contentKeysBroken";
    case erasureImpossible:
      return "erasureImpossible";
    case duplicateCopyMissing:
      return "duplicateCopyMissing";
    case indexUnavailable:
      return "indexUnavailable";
    case secondCopyMissing:
      return "secondCopyMissing";
    case procedureMissing:
      return "procedureMissing";
    case neverControlled:
      return "neverControlled";
    case captureManualOnly:
      break;
  }
  return "captureManualOnly";
}

struct Encode {
  json operator()(const Finding::ChainIntact& f) const {
    return named("chainIntact", {{"entries", f.entries}});
  }
  json operator()(const Finding::ChainMalformed& f) const {
    return named("chainMalformed", {{"at", f.at}});
  }
  json operator()(const Finding::ChainSequenceGap& f) const {
    return named("chainSequenceGap", {{"expected", f.expected}, {"found", f.found}});
  }
  json operator()(const Finding::ChainBreak& f) const {
    return named("chainBreak", {{"at", f.at}});
  }
  json operator()(const Finding::ChainEntryModified& f) const {
    return named("chainEntryModified", {{"at", f.at}});
  }
  json operator()(const Finding::AllMessagesAsReceived& f) const {
    return named("allMessagesAsReceived", {{"count", f.count}});
  }
  json operator()(const Finding::SomeMessagesReconstructed& f) const {
    return named("someMessagesReconstructed",
                 {{"reconstructed", f.reconstructed}, {"of", f.of}, {"sources", f.sources}});
  }
  json operator()(const Finding::SealsVerify& f) const {
    return named("sealsVerify", {{"count", f.count}, {"entries", f.entries}});
  }
  json operator()(const Finding::SealsFailVerification& f) const {
    return named("sealsFailVerification", {{"bad", f.bad}, {"of", f.of}});
  }
  json operator()(const Finding::SigningKeys& f) const {
    return named("signingKeys", {{"keys", f.keys}, {"seals", f.seals}});
  }
  json operator()(const Finding::SealAnchored& f) const {
    return named("sealAnchored", {{"entry", f.entry}, {"added", f.added}});
  }
  json operator()(const Finding::SealNotAnchored& f) const {
    return named("sealNotAnchored", {{"entry", f.entry}});
  }
  json operator()(const Finding::PackDigestFailures& f) const {
    return named("packDigestFailures", {{"_0", f.text}});
  }
  json operator()(const Finding::PacksImmutable& f) const {
    return named("packsImmutable", {{"_0", f.count}});
  }
  json operator()(const Finding::PacksWritable& f) const {
    return named("packsWritable", {{"_0", f.count}});
  }
  json operator()(const Finding::MessagesRehashed& f) const {
    return named("messagesRehashed", {{"checked", f.checked}, {"deduplicated", f.deduplicated}});
  }
  json operator()(const Finding::MessagesFailedRehash& f) const {
    return named("messagesFailedRehash", {{"failures", f.failures}, {"checked", f.checked}});
  }
  json operator()(const Finding::ErasurePossible& f) const {
    return named("erasurePossible", {{"erased", f.erased}});
  }
  json operator()(const Finding::DuplicateCopyConfigured& f) const {
    return named("duplicateCopyConfigured", {{"_0", f.path}});
  }
  json operator()(const Finding::CatalogDatabase& f) const {
    return named(
        "catalogDatabase",
        {{"detail", f.detail}, {"fileSystem", f.fileSystem}, {"recoverable", f.recoverable}});
  }
  json operator()(const Finding::NetworkVolume& f) const {
    return named("networkVolume", {{"fileSystem", f.fileSystem}});
  }
  json operator()(const Finding::IndexCovers& f) const {
    return named("indexCovers",
                 {{"messages", f.messages}, {"selectiveRemoval", f.selectiveRemoval}});
  }
  json operator()(const Finding::TimestampsOnAllSeals& f) const {
    return named("timestampsOnAllSeals", {{"count", f.count}, {"issuers", f.issuers}});
  }
  json operator()(const Finding::TimestampsMissing& f) const {
    json value = {{"missing", f.missing}, {"of", f.of}};
    if (f.lastFailure) value["lastFailure"] = *f.lastFailure;
    return named("timestampsMissing", std::move(value));
  }
  json operator()(const Finding::SecondCopyRecorded& f) const {
    return named("secondCopyRecorded", {{"_0", f.location}});
  }
  json operator()(const Finding::ProcedureRecorded& f) const {
    return named("procedureRecorded", {{"_0", f.reference}});
  }
  json operator()(const Finding::LastControl& f) const {
    return named("lastControl", {{"when", f.when}, {"by", f.by}});
  }
  json operator()(const Finding::ControlOverdue& f) const {
    return named("controlOverdue", {{"when", f.when}, {"by", f.by}});
  }
  json operator()(const Finding::CaptureScheduled& f) const {
    return named("captureScheduled",
                 {{"schedule", f.schedule.text()}, {"lastSuccess", f.lastSuccess}});
  }
  json operator()(const Finding::CaptureScheduledButStale& f) const {
    json value = {{"schedule", f.schedule.text()}};
    if (f.lastSuccess) value["lastSuccess"] = *f.lastSuccess;
    if (f.failure) value["failure"] = *f.failure;
    return named("captureScheduledButStale", std::move(value));
  }
  json operator()(const Finding::PublisherIdentified& f) const {
    return named("publisherIdentified", {{"_0", f.name}, {"distribution", f.distribution}});
  }
  json operator()(const Finding::PublisherAnonymous& f) const {
    return named("publisherAnonymous", {{"_0", f.why}});
  }
  json operator()(Finding::Fixed f) const { return named(nameOf(f), json::object()); }
  json operator()(const Finding::Verbatim& /*f*/) const {
    return named("verbatim", {{"_0", text}});
  }

  const std::string& text;  ///< the finding's, in English
};

}  // namespace

std::string Finding::json() const {
  const std::string english = text();
  return compactJson(std::visit(Encode{english}, value_));
}

}  // namespace ambervane
