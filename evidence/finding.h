#ifndef AMBERVANE_EVIDENCE_FINDING_H_
#define AMBERVANE_EVIDENCE_FINDING_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "base/localized_message.h"
#include "base/report_language.h"

namespace ambervane {

/// What a check found, kept apart from its words, which are made in any language a report is
/// written in. Texts in it that come from outside (paths, names, what SQLite said) stand as they
/// are.
class Finding {
 public:
  /// SQLite's check found nothing.
  static constexpr std::string_view databaseConsistent =
      "SQLite reports the database is consistent";

  /// The findings that have nothing to fill in.
  enum class Fixed {
    noSealYet,
    packDigestsMatch,
    noPackSealedYet,
    contentKeysOpen,
    contentKeysBroken,
    erasureImpossible,
    duplicateCopyMissing,
    indexUnavailable,
    secondCopyMissing,
    procedureMissing,
    neverControlled,
    captureManualOnly,
  };
  struct ChainIntact {
    std::int64_t entries;
    friend bool operator==(const ChainIntact&, const ChainIntact&) = default;
  };
  struct ChainMalformed {
    std::int64_t at;  ///< the position, counted from 1, where an entry should have stood
    friend bool operator==(const ChainMalformed&, const ChainMalformed&) = default;
  };
  struct ChainSequenceGap {
    std::int64_t expected;
    std::int64_t found;
    friend bool operator==(const ChainSequenceGap&, const ChainSequenceGap&) = default;
  };
  struct ChainBreak {
    std::int64_t at;  ///< the `seq` of the entry that does not link to the one before it
    friend bool operator==(const ChainBreak&, const ChainBreak&) = default;
  };
  struct ChainEntryModified {
    std::int64_t at;  ///< the `seq` of the entry whose hash is not that of its fields
    friend bool operator==(const ChainEntryModified&, const ChainEntryModified&) = default;
  };
  struct AllMessagesAsReceived {
    std::int64_t count;
    friend bool operator==(const AllMessagesAsReceived&, const AllMessagesAsReceived&) = default;
  };
  struct SomeMessagesReconstructed {
    std::int64_t reconstructed;
    std::int64_t of;
    std::string sources;  ///< what they were rebuilt from, comma-joined
    friend bool operator==(const SomeMessagesReconstructed&,
                           const SomeMessagesReconstructed&) = default;
  };
  struct SealsVerify {
    std::int64_t count;
    std::int64_t entries;  ///< that the latest one covers
    friend bool operator==(const SealsVerify&, const SealsVerify&) = default;
  };
  struct SealsFailVerification {
    std::int64_t bad;
    std::int64_t of;
    friend bool operator==(const SealsFailVerification&, const SealsFailVerification&) = default;
  };
  struct SigningKeys {
    std::int64_t keys;
    std::int64_t seals;
    friend bool operator==(const SigningKeys&, const SigningKeys&) = default;
  };
  struct SealAnchored {
    std::int64_t entry;
    std::int64_t added;  ///< entries since the seal
    friend bool operator==(const SealAnchored&, const SealAnchored&) = default;
  };
  struct SealNotAnchored {
    std::int64_t entry;
    friend bool operator==(const SealNotAnchored&, const SealNotAnchored&) = default;
  };
  struct PackDigestFailures {
    std::string text;
    friend bool operator==(const PackDigestFailures&, const PackDigestFailures&) = default;
  };
  struct PacksImmutable {
    std::int64_t count;
    friend bool operator==(const PacksImmutable&, const PacksImmutable&) = default;
  };
  struct PacksWritable {
    std::int64_t count;
    friend bool operator==(const PacksWritable&, const PacksWritable&) = default;
  };
  struct MessagesRehashed {
    std::int64_t checked;
    std::int64_t deduplicated;  ///< attachments that several messages carry
    friend bool operator==(const MessagesRehashed&, const MessagesRehashed&) = default;
  };
  struct MessagesFailedRehash {
    std::int64_t failures;
    std::int64_t checked;
    friend bool operator==(const MessagesFailedRehash&, const MessagesFailedRehash&) = default;
  };
  struct ErasurePossible {
    std::int64_t erased;
    friend bool operator==(const ErasurePossible&, const ErasurePossible&) = default;
  };
  struct DuplicateCopyConfigured {
    std::string path;
    friend bool operator==(const DuplicateCopyConfigured&,
                           const DuplicateCopyConfigured&) = default;
  };
  struct CatalogDatabase {
    std::string detail;  ///< `databaseConsistent`, or what SQLite said
    std::string fileSystem;
    bool recoverable;  ///< from the sidecars
    friend bool operator==(const CatalogDatabase&, const CatalogDatabase&) = default;
  };
  struct NetworkVolume {
    std::string fileSystem;
    friend bool operator==(const NetworkVolume&, const NetworkVolume&) = default;
  };
  struct IndexCovers {
    std::int64_t messages;
    bool selectiveRemoval;
    friend bool operator==(const IndexCovers&, const IndexCovers&) = default;
  };
  struct TimestampsOnAllSeals {
    std::int64_t count;
    std::string issuers;
    friend bool operator==(const TimestampsOnAllSeals&, const TimestampsOnAllSeals&) = default;
  };
  struct TimestampsMissing {
    std::int64_t missing;
    std::int64_t of;
    std::optional<std::string> lastFailure;
    friend bool operator==(const TimestampsMissing&, const TimestampsMissing&) = default;
  };
  struct SecondCopyRecorded {
    std::string location;
    friend bool operator==(const SecondCopyRecorded&, const SecondCopyRecorded&) = default;
  };
  struct ProcedureRecorded {
    std::string reference;
    friend bool operator==(const ProcedureRecorded&, const ProcedureRecorded&) = default;
  };
  struct LastControl {
    std::string when;
    std::string by;
    friend bool operator==(const LastControl&, const LastControl&) = default;
  };
  struct ControlOverdue {
    std::string when;
    std::string by;
    friend bool operator==(const ControlOverdue&, const ControlOverdue&) = default;
  };
  struct CaptureScheduled {
    LocalizedMessage schedule;
    std::string lastSuccess;
    friend bool operator==(const CaptureScheduled&, const CaptureScheduled&) = default;
  };
  struct CaptureScheduledButStale {
    LocalizedMessage schedule;
    std::optional<std::string> lastSuccess;  ///< absent: never
    std::optional<std::string> failure;
    friend bool operator==(const CaptureScheduledButStale&,
                           const CaptureScheduledButStale&) = default;
  };
  struct PublisherIdentified {
    std::string name;
    bool distribution;  ///< signed for giving to others
    friend bool operator==(const PublisherIdentified&, const PublisherIdentified&) = default;
  };
  struct PublisherAnonymous {
    std::string why;  ///< one of the texts of `CodeSignature`
    friend bool operator==(const PublisherAnonymous&, const PublisherAnonymous&) = default;
  };
  /// Words of its own, one or several statements divided by "; ". Each is translated where the
  /// tables know it.
  struct Verbatim {
    std::vector<LocalizedMessage> statements;
    explicit Verbatim(std::string text) : statements{{std::move(text), {}}} {}
    explicit Verbatim(std::vector<LocalizedMessage> all) : statements(std::move(all)) {}
    friend bool operator==(const Verbatim&, const Verbatim&) = default;
  };
  using Value = std::variant<
      ChainIntact, ChainMalformed, ChainSequenceGap, ChainBreak, ChainEntryModified,
      AllMessagesAsReceived, SomeMessagesReconstructed, SealsVerify, SealsFailVerification,
      SigningKeys, SealAnchored, SealNotAnchored, PackDigestFailures, PacksImmutable, PacksWritable,
      MessagesRehashed, MessagesFailedRehash, ErasurePossible, DuplicateCopyConfigured,
      CatalogDatabase, NetworkVolume, IndexCovers, TimestampsOnAllSeals, TimestampsMissing,
      SecondCopyRecorded, ProcedureRecorded, LastControl, ControlOverdue, CaptureScheduled,
      CaptureScheduledButStale, PublisherIdentified, PublisherAnonymous, Fixed, Verbatim>;

  explicit Finding(Value value);
  // Compiled once: making, copying and comparing so many cases is much code in every file.
  Finding(const Finding& other);
  Finding(Finding&& other) noexcept;
  Finding& operator=(const Finding& other);
  Finding& operator=(Finding&& other) noexcept;
  ~Finding();
  const Value& value() const noexcept { return value_; }
  /// Has every word a finding can say: an English format, with what is filled in as `language`
  /// has it.
  LocalizedMessage message(ReportLanguage language = ReportLanguage::english) const;
  std::string text(ReportLanguage language = ReportLanguage::english) const {
    return localized(message(language), language);
  }
  /// JSON: one object under the name of the case, such as {"chainIntact":{"entries":3}}. A value
  /// without a label has the key "_0"; one that is absent is left out.
  std::string json() const;
  bool operator==(const Finding& other) const;

 private:
  Value value_;
};

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_FINDING_H_
