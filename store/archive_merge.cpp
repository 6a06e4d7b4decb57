// Taking one archive's mail into another. Bytes come out of the source on the pipeline's reader
// thread, and what belongs to a message (mailboxes, tags, notes, holds) travels beside it; it is
// put into the same transaction as the message, so that a crash never leaves one without the other.

#include "store/archive_merge.h"

#include <map>
#include <set>
#include <utility>

#include "base/text.h"
#include "store/archive_error.h"
#include "store/catalog_holds.h"
#include "store/hold_application.h"
#include "store/ingest.h"
#include "store/ingest_batch.h"
#include "store/merge_accounts.h"
#include "store/merge_evidence.h"
#include "store/merge_source.h"
#include "store/recorded_change.h"
#include "store/tagging.h"

namespace ambervane {
namespace {

constexpr std::size_t kMaximumListedFailures = 50;
constexpr const char* kMergedBy = "merged";

std::string number(std::int64_t n) { return std::to_string(n); }

class MergeRun {
 public:
  MergeRun(MailArchive& target, MailArchive& source, const std::string& by,
           const MergeProgress& progress)
      : target_(target),
        source_(source),
        by_(by),
        progress_(progress),
        holds_(CatalogHolds(source.catalog()).holds(false)),
        mail_(source),
        total_(mail_.estimatedCount().value_or(0)) {
    outcome_.sourceArchiveID = source.manifest().archiveID;
  }

  MergeOutcome run(const std::function<bool()>& shouldCancel) {
    begin();
    const std::int64_t heldBefore = heldMessages();
    takeHolds();
    takeMessages(shouldCancel);
    outcome_.heldMessages = heldMessages() - heldBefore;
    finish();
    return std::move(outcome_);
  }

 private:
  void begin() {
    const MergeEvidence evidence = makeEvidenceDirectory(target_, source_);
    outcome_.evidencePath = evidence.path;
    outcome_.sourceChainHead = evidence.chainHead;
    RecordedChange change(target_);
    MergeAccounts accounts(target_, source_);
    target_.journal().append(
        AuditAction::policyChanged, "merge",
        {{"action", "started"},
         {"source", outcome_.sourceArchiveID},
         {"source_name", sourceName()},
         {"source_head", evidence.chainHead},
         {"source_messages", number(total_)},
         {"evidence", evidence.path.lexically_relative(target_.url()).generic_string()},
         {"accounts", accounts.record()},
         {"by", by_}});
    mailboxes_ = accounts.make();
    outcome_.accounts = accounts.count();
    change.finish();
  }

  const std::string& sourceName() const { return source_.manifest().name; }

  /// A hold that is here already is for the keeper of this archive to release or to leave.
  void takeHolds() {
    CatalogHolds catalog(target_.catalog());
    for (const LegalHold& hold : holds_) {
      auto here = catalog.hold(hold.id);
      if (!here) {
        takeHold(hold);
        here = hold;
      }
      if (here->isActive()) activeHolds_.insert(hold.id);
    }
  }

  void takeHold(const LegalHold& hold) {
    target_.flushSolidBlock();
    RecordedChange change(target_);
    CatalogHolds(target_.catalog()).save(hold);
    auto details = holdDetails(hold);
    details["note"] = "carried over with the merge from " + sourceName();
    if (hold.isActive()) {
      const HoldCoverage coverage = reapplyHold(target_, hold);
      if (coverage.unreadable > 0) details["unreadable"] = number(coverage.unreadable);
    }
    target_.journal().append(AuditAction::legalHoldPlaced, hold.id, details);
    if (!hold.isActive()) {
      target_.journal().append(AuditAction::legalHoldReleased, hold.id,
                               {{"reason", "released before the merge from " + sourceName()}});
    }
    change.finish();
    ++outcome_.holds;
  }

  std::int64_t heldMessages() {
    std::int64_t messages = 0;
    CatalogHolds catalog(target_.catalog());
    for (const LegalHold& hold : holds_) messages += catalog.messagesUnder(hold.id);
    return messages;
  }

  void takeMessages(const std::function<bool()>& shouldCancel) {
    const KnownDigests known(target_.catalog().database().path());
    PrepareSettings atStart = prepareSettings(target_);
    atStart.known = &known;
    std::exception_ptr failure;
    {
      IngestPipeline pipeline(mail_, currentSettings(target_, atStart), shouldCancel);
      while (auto batch = pipeline.next()) {
        commitReady(target_, "merge", std::move(*batch), pipeline,
                    [this](IngestPipeline::Item& item) { commitItem(item); });
      }
      failure = pipeline.failure();
      outcome_.cancelled = pipeline.cancelled();
    }
    target_.flushSolidBlock();
    target_.synchronize();
    if (failure) std::rethrow_exception(failure);
  }

  void commitItem(IngestPipeline::Item& item) {
    TravellingMessage mail = mail_.take();
    std::erase_if(mail.filings,
                  [this](const auto& filing) { return !mailboxes_.contains(filing.folderID); });
    if (item.unreadable) {
      noteFailure(*item.unreadable);
    } else if (!item.prepared) {
      noteFailure("message " + number(mail.id) + ": empty or unreadable message");
    } else if (item.prepared->hash != mail.digest) {
      noteFailure("message " + number(mail.id) + ": its bytes are not those of its digest");
    } else if (mail.filings.empty() && !mailboxes_.contains(kNoFolder)) {
      noteFailure("message " + number(mail.id) + ": its mailbox was made while this was read");
    } else {
      commitMessage(*item.prepared, mail);
    }
    if (progress_) progress_(++done_, total_);
  }

  void commitMessage(PreparedMessage& message, const TravellingMessage& mail) {
    const auto known = target_.catalog().messageID(message.hash);
    const std::int64_t folder = mail.filings.empty() ? kNoFolder : mail.filings.front().folderID;
    const Filed before(target_, known, mailboxes_.at(folder));
    const IngestOutcome outcome = commit(target_, message, before.mailbox, classOf(mail));
    if (outcome.kind == IngestOutcome::Kind::failed) {
      noteFailure("message " + number(mail.id) + ": " + outcome.reason);
      return;
    }
    ++(outcome.kind == IngestOutcome::Kind::stored ? outcome_.messages : outcome_.duplicates);
    const std::int64_t id = known ? *known : target_.catalog().messageID(message.hash).value();
    if (before.was) {
      before.restore(id);
    } else if (!mail.filings.empty()) {
      markPast(id, before.mailbox, mail.filings.front());
    }
    // Of what has been erased here nothing comes back.
    if (known && target_.catalog().message(id)->erased) return;
    fileFurther(message, id, mail);
    attach(id, mail);
  }

  /// How a message lies in a mailbox of the target. That is for its own keeper to change, and for
  /// its own collection: a merge leaves it as it was.
  struct Filed {
    Filed(MailArchive& archive, std::optional<std::int64_t> id, const MailboxRef& in)
        : target(archive), mailbox(in) {
      if (!id) return;
      const auto rows = archive.catalog().database().query(
          "SELECT * FROM message_folder WHERE message_id = ? AND folder_id = ?",
          {*id, in.folderID});
      if (!rows.empty()) was = rows.front();
    }
    void restore(std::int64_t id) const {
      target.catalog().database().run(
          "UPDATE message_folder SET uid = ?, flags = ?, last_seen_at = ?, removed_at = ? WHERE "
          "message_id = ? AND folder_id = ?",
          {was->optionalInteger("uid"), was->string("flags"), was->date("last_seen_at"),
           was->date("removed_at"), id, mailbox.folderID});
    }
    MailArchive& target;
    const MailboxRef& mailbox;
    std::optional<Row> was;
  };

  void fileFurther(PreparedMessage& message, std::int64_t id, const TravellingMessage& mail) {
    for (std::size_t i = 1; i < mail.filings.size(); ++i) {
      const TravellingMessage::Filing& filing = mail.filings[i];
      const MailboxRef& mailbox = mailboxes_.at(filing.folderID);
      if (Filed(target_, id, mailbox).was) continue;
      message.source.flags = flagsFromText(filing.flags);
      message.source.sourceIdentifier.reset();
      if (filing.uid) message.source.sourceIdentifier = number(*filing.uid);
      fileInMailbox(target_, message, id, mailbox);
      markPast(id, mailbox, filing);
    }
  }

  void markPast(std::int64_t id, const MailboxRef& mailbox,
                const TravellingMessage::Filing& filing) {
    if (!filing.removedAt) return;
    target_.catalog().database().run(
        "UPDATE message_folder SET removed_at = ? WHERE message_id = ? AND folder_id = ?",
        {*filing.removedAt, id, mailbox.folderID});
  }

  void attach(std::int64_t id, const TravellingMessage& mail) {
    for (const ArchiveTag& tag : mail.tags) {
      const auto here = tagHere(tag);
      if (here && tagMessage(target_, *here, id, kMergedBy)) ++outcome_.tags;
    }
    for (const MessageNote& note : mail.notes) attachNote(id, note);
    CatalogHolds holds(target_.catalog());
    for (const std::string& hold : mail.holds) {
      if (activeHolds_.contains(hold)) holds.link(id, hold);
    }
  }

  /// The tag of that name, whose colour stays when it is here already; none for a name of blanks.
  std::optional<ArchiveTag> tagHere(const ArchiveTag& tag) {
    const auto known = tags_.find(tag.name);
    if (known != tags_.end()) return known->second;
    if (trim(tag.name).empty()) return std::nullopt;
    CatalogAnnotations annotations(target_.catalog());
    const std::string name = requiredTagName(tag.name);
    if (!annotations.tag(name)) annotations.upsertTag(name, tag.colour, target_.now());
    return tags_.emplace(tag.name, annotations.tag(name).value()).first->second;
  }

  void attachNote(std::int64_t id, MessageNote note) {
    note.messageID = id;
    CatalogAnnotations annotations(target_.catalog());
    if (annotations.hasNote(note)) return;
    annotations.insertNote(note);
    target_.journal().append(AuditAction::noteAdded, target_.catalog().messageDigest(id),
                             {{"author", note.author},
                              {"note", note.body},
                              {"message_id", number(id)},
                              {"created_at", decimalNumber(note.createdAt.seconds)},
                              {"updated_at", decimalNumber(note.updatedAt.seconds)},
                              {"by", kMergedBy}});
    ++outcome_.notes;
  }

  /// The message's own class, counted as this archive's policy counts it.
  std::optional<RetentionClass> classOf(const TravellingMessage& mail) const {
    if (auto here = target_.policy().retentionClass(mail.retentionClass)) return here;
    return source_.policy().retentionClass(mail.retentionClass);
  }

  void noteFailure(const std::string& text) {
    ++outcome_.failed;
    if (outcome_.failures.size() < kMaximumListedFailures) outcome_.failures.push_back(text);
  }

  void finish() {
    try {
      target_.catalog().optimizeSearchIndex();
    } catch (const SQLiteError&) {
      // Only a matter of speed.
    }
    target_.journal().append(AuditAction::policyChanged, "merge",
                             {{"action", outcome_.cancelled ? "interrupted" : "finished"},
                              {"source", outcome_.sourceArchiveID},
                              {"messages", number(outcome_.messages)},
                              {"duplicates", number(outcome_.duplicates)},
                              {"failed", number(outcome_.failed)},
                              {"holds", number(outcome_.holds)},
                              {"held_messages", number(outcome_.heldMessages)},
                              {"tags", number(outcome_.tags)},
                              {"notes", number(outcome_.notes)},
                              {"by", by_}});
    target_.sealNow();
  }

  MailArchive& target_;
  MailArchive& source_;
  const std::string& by_;
  const MergeProgress& progress_;
  const std::vector<LegalHold> holds_;
  TravellingMail mail_;
  const std::int64_t total_;
  std::int64_t done_ = 0;
  MergeOutcome outcome_;
  std::map<std::int64_t, MailboxRef> mailboxes_;  ///< by the folders of the source
  std::set<std::string> activeHolds_;             ///< of the source, and active here
  std::map<std::string, ArchiveTag> tags_;
};

}  // namespace

LocalizedMessage MergeError::message() const {
  switch (reason_) {
    case Reason::sameArchive:
      break;
  }
  return {
      "That is the same archive. Merging an archive into itself would double every message it "
      "holds.",
      {}};
}

MergeOutcome mergeArchive(MailArchive& target, MailArchive& source, const std::string& by,
                          const MergeProgress& progress,
                          const std::function<bool()>& shouldCancel) {
  if (target.readOnly()) throw ArchiveError(ArchiveError::ReadOnly{});
  if (target.manifest().archiveID == source.manifest().archiveID) {
    throw MergeError(MergeError::Reason::sameArchive);
  }
  requireRoomToAdd(target, source.url(), "Merging an archive");
  return MergeRun(target, source, by, progress).run(shouldCancel);
}

}  // namespace ambervane
