#include "compliance/verification.h"

#include <algorithm>
#include <deque>
#include <future>
#include <memory>
#include <utility>

#include "base/bytes.h"
#include "base/calendar.h"
#include "base/digest.h"
#include "base/ed25519.h"
#include "base/file.h"
#include "base/text.h"
#include "compliance/check_names.h"
#include "compliance/holdings.h"
#include "compliance/journal_record.h"
#include "compliance/organisational_checks.h"
#include "compliance/pool_task.h"
#include "compliance/sidecar_coverage.h"
#include "platform/immutable_flag.h"
#include "platform/volume.h"
#include "store/key_error.h"
#include "store/pack_format.h"

namespace ambervane {
namespace {

constexpr int kExpiringDays = 90;
/// A seal with this many entries behind it anchors the journal no more.
constexpr std::int64_t kSealReach = 500'000;

/// What is wrong with the first bytes of a pack file; empty when nothing is.
std::string headerFault(const std::filesystem::path& path) {
  Bytes header(kPackMagic);
  header.resize(kPackHeaderBytes, '\0');
  try {
    return MappedFile::open(path)->bytes().starts_with(header) ? "" : "not a pack file";
  } catch (const FileError& error) {
    return error.what();
  }
}

/// Thrown between two steps when the caller wants no more.
struct Cancelled {};

/// One run over one archive.
class Verification {
 public:
  Verification(MailArchive& archive, const VerificationOptions& options)
      : archive_(archive), db_(archive.catalog().database()), options_(options) {}

  ComplianceReport run() {
    guarded(check_names::kProvenance, [this] { checkProvenance(); });
    checkChain();
    checkSeals();
    checkKeyContinuity();
    readJournal();
    checkSealCurrency();
    guarded(check_names::kPackDigests, [this] { checkPackDigests(); });
    guarded(check_names::kWriteProtection, [this] { checkWriteProtection(); });
    guarded(check_names::kOrganisation, [this] { checkOrganisation(); });
    if (options_.deep) guarded(check_names::kContent, [this] { checkContent(); });
    guarded(check_names::kContentKeys, [this] { checkKeys(); });
    guarded(check_names::kErasure, [this] { checkErasure(); });
    guarded(check_names::kCatalog, [this] { checkCatalog(); });
    guarded(check_names::kIndex, [this] { checkIndex(); });
    guarded(check_names::kHoldings, [this] { checkHoldings(); });
    guarded(check_names::kFigures, [this] { addFigures(); });
    record();
    return std::move(report_);
  }

 private:
  /// Runs one check; a database or keys that cannot be read fail it instead of ending the run.
  template <typename Body>
  void guarded(const char* name, Body body) {
    try {
      body();
    } catch (const SQLiteError& error) {
      if (!error.isMediumFailure()) throw;
      fail(name, Finding::Verbatim(error.what()));
    } catch (const KeyError&) {
      fail(name, Finding::Fixed::contentKeysBroken);
    }
  }

  void enter(std::string phase) {
    if (options_.shouldCancel && options_.shouldCancel()) throw Cancelled{};
    progress_ = {};
    progress_.phase = std::move(phase);
    tell();
  }
  void tell() const {
    if (options_.progress) options_.progress(progress_);
  }

  ComplianceCheck& add(const char* name, Outcome outcome, Finding::Value finding) {
    ComplianceCheck check;
    check.name = name;
    check.outcome = outcome;
    check.finding = Finding(std::move(finding));
    report_.checks.push_back(std::move(check));
    return report_.checks.back();
  }
  ComplianceCheck& pass(const char* name, Finding::Value finding) {
    return add(name, Outcome::passed, std::move(finding));
  }
  ComplianceCheck& fail(const char* name, Finding::Value finding) {
    return add(name, Outcome::failed, std::move(finding));
  }

  bool isUnder(ComplianceRegime regime) const { return archive_.policy().regimes.contains(regime); }

  void checkProvenance();
  void checkChain();
  void checkSeals();
  void checkKeyContinuity();
  std::optional<std::string> presentKey() const;
  void readJournal();
  void checkSealCurrency();
  void checkPackDigests();
  void checkWriteProtection();
  void checkOrganisation();
  void checkContent();
  void checkKeys();
  void checkErasure();
  bool isRecoverable();
  void checkCatalog();
  void checkIndex();
  void checkHoldings();
  void addFigures();
  void record();

  MailArchive& archive_;
  SQLiteDatabase& db_;
  const VerificationOptions& options_;
  IntegrityProgress progress_;
  ComplianceReport report_;
  bool chainIsSound_ = false;
  std::vector<ChainSeal> seals_;
  std::int64_t badSeals_ = 0;
  std::optional<std::string> publicKey_;
  std::unique_ptr<JournalRecord> journal_;
  std::vector<std::string> misdated_;
};

void Verification::checkProvenance() {
  enter("Counting the messages");
  const std::int64_t total = db_.count("SELECT COUNT(*) FROM message");
  const std::int64_t reconstructed =
      db_.count("SELECT COUNT(*) FROM message WHERE origin = 'reconstructed'");
  if (reconstructed == 0) {
    pass(check_names::kProvenance, Finding::AllMessagesAsReceived{total});
    return;
  }
  std::vector<std::string> sources;
  for (const Row& row : db_.query(
           "SELECT DISTINCT origin_source AS source FROM message WHERE origin = 'reconstructed' "
           "AND origin_source <> '' ORDER BY origin_source")) {
    sources.push_back(row.string("source"));
  }
  pass(check_names::kProvenance,
       Finding::SomeMessagesReconstructed{
           reconstructed, total, sources.empty() ? "another mail store" : join(sources, ", ")});
}

void Verification::checkChain() {
  enter("Verifying the audit chain");
  const VerificationResult result = archive_.journal().verify();
  chainIsSound_ = result.ok;
  add(check_names::kChain, result.ok ? Outcome::passed : Outcome::failed, result.finding->value());
}

void Verification::checkSeals() {
  enter("Checking the seals");
  seals_ = archive_.sealer().allSeals();
  if (seals_.empty()) {
    fail(check_names::kSeals, Finding::Fixed::noSealYet);
    return;
  }
  badSeals_ =
      std::ranges::count_if(seals_, [](const ChainSeal& seal) { return !Sealer::verify(seal); });
  const auto count = static_cast<std::int64_t>(seals_.size());
  if (badSeals_ > 0) {
    fail(check_names::kSeals, Finding::SealsFailVerification{badSeals_, count});
  } else {
    pass(check_names::kSeals, Finding::SealsVerify{count, seals_.back().entryCount});
  }
}

/// The archive's present public key in base64. The sealer makes one where there is none; an archive
/// that is only read is merely looked at.
std::optional<std::string> Verification::presentKey() const {
  if (archive_.readOnly()) {
    const auto raw = readFileIfPossible(archive_.url() / "keys" / "seal.key");
    const auto key = raw ? Ed25519PrivateKey::fromRaw(*raw) : std::nullopt;
    return key ? std::optional(base64Encode(key->publicKey())) : std::nullopt;
  }
  try {
    return archive_.sealer().publicKeyBase64();
  } catch (const TranslatableError&) {
    return std::nullopt;
  }
}

void Verification::checkKeyContinuity() {
  publicKey_ = presentKey();
  const auto history = archive_.sealer().signingKeyHistory();
  const bool wasRotated =
      !history.empty() && publicKey_ && std::ranges::find(history, *publicKey_) == history.end();
  if (history.size() <= 1 && !wasRotated) return;
  add(check_names::kKeyContinuity, badSeals_ > 0 ? Outcome::failed : Outcome::passed,
      Finding::SigningKeys{static_cast<std::int64_t>(history.size()),
                           static_cast<std::int64_t>(seals_.size())});
}

void Verification::readJournal() {
  enter("Reading the journal");
  journal_ = std::make_unique<JournalRecord>(
      archive_.journal(), seals_.empty() ? std::nullopt : std::optional(seals_.back().entryCount));
}

void Verification::checkSealCurrency() {
  if (seals_.empty() || !chainIsSound_) return;
  const ChainSeal& latest = seals_.back();
  const std::int64_t added = archive_.journal().count() - latest.entryCount;
  if (added < kSealReach && journal_->wantedHash() == latest.chainHead) {
    pass(check_names::kSealCurrency, Finding::SealAnchored{latest.entryCount, added});
  } else {
    fail(check_names::kSealCurrency, Finding::SealNotAnchored{latest.entryCount});
  }
}

void Verification::checkPackDigests() {
  enter("Re-hashing pack files");
  auto packs = archive_.catalog().packs();
  std::vector<std::string> changed;
  // Of a pack still written to no digest is known; but one that does not begin as packs do would be
  // passed over when the catalog is rebuilt.
  std::erase_if(packs, [&](const PackRow& pack) {
    if (pack.sha256) return false;
    const std::string fault = headerFault(archive_.packs().packURL(pack.id));
    if (!fault.empty()) changed.push_back(PackStore::packName(pack.id) + ": " + fault);
    return true;
  });
  if (packs.empty() && changed.empty()) {
    pass(check_names::kPackDigests, Finding::Fixed::noPackSealedYet);
    return;
  }
  // One reader cannot keep a fast disk busy; a few at a time, begun in order, can.
  std::deque<std::future<std::string>> running;
  std::size_t begun = 0;
  ThreadPool pool(ThreadPool::processorCount());
  for (std::size_t i = 0; i < packs.size(); ++i) {
    const std::string name = PackStore::packName(packs[i].id);
    enter("Re-hashing pack files — " + name);
    progress_.checked = static_cast<std::int64_t>(i);
    progress_.total = static_cast<std::int64_t>(packs.size());
    progress_.failures = static_cast<std::int64_t>(changed.size());
    progress_.indeterminate = false;
    tell();
    for (; begun < packs.size() && begun < i + pool.threadCount(); ++begun) {
      running.push_back(
          runOn(pool, [this, id = packs[begun].id] { return archive_.packs().digest(id); }));
    }
    try {
      if (running.front().get() != packs[i].sha256) changed.push_back(name + ": digest changed");
    } catch (const TranslatableError& error) {
      changed.push_back(name + ": " + error.what());
    }
    running.pop_front();
  }
  if (changed.empty()) {
    pass(check_names::kPackDigests, Finding::Fixed::packDigestsMatch);
  } else {
    fail(check_names::kPackDigests, Finding::PackDigestFailures{join(changed, "; ")});
  }
}

void Verification::checkWriteProtection() {
  if (!archive_.policy().wormEnforcement) return;
  std::int64_t sealed = 0;
  std::int64_t writable = 0;
  for (const PackRow& pack : archive_.catalog().packs()) {
    if (!pack.sha256) continue;
    ++sealed;
    if (!isImmutable(archive_.packs().packURL(pack.id))) ++writable;
  }
  ComplianceCheck& check =
      sealed == 0     ? pass(check_names::kWriteProtection, Finding::Fixed::noPackSealedYet)
      : writable == 0 ? pass(check_names::kWriteProtection, Finding::PacksImmutable{sealed})
                      : fail(check_names::kWriteProtection, Finding::PacksWritable{writable});
  check.authority = "GeBüV Art. 9 Abs. 1 lit. a";
}

void Verification::checkOrganisation() {
  if (!isUnder(ComplianceRegime::swissGeBueV)) return;
  for (ComplianceCheck& check : swissOrganisationalChecks(archive_)) {
    report_.checks.push_back(std::move(check));
  }
}

void Verification::checkContent() {
  enter("Re-reading and re-hashing every message");
  progress_.total = db_.count("SELECT COUNT(*) FROM message WHERE erased = 0");
  progress_.indeterminate = false;
  tell();
  bool stopped = false;
  RehashObserver observer;
  observer.shouldCancel = [&] {
    stopped = stopped || (options_.shouldCancel && options_.shouldCancel());
    return stopped;
  };
  observer.step = [this](std::int64_t checked, std::int64_t failures) {
    progress_.checked = checked;
    progress_.failures = failures;
    tell();
  };
  observer.damaged = options_.damagedMessage;
  RehashResult result = rehashMessages(archive_, observer);
  if (stopped) throw Cancelled{};
  misdated_ = std::move(result.misdated);
  if (result.failures > 0) {
    fail(check_names::kContent, Finding::MessagesFailedRehash{result.failures, result.checked});
  } else {
    pass(check_names::kContent,
         Finding::MessagesRehashed{result.checked,
                                   db_.count("SELECT COUNT(*) FROM blob WHERE refcount > 1")});
  }
}

void Verification::checkKeys() {
  if (!archive_.policy().cryptoShreddingEnabled) return;
  enter("Checking the content keys");
  if (archive_.keys().verifyMasterKey()) {
    pass(check_names::kContentKeys, Finding::Fixed::contentKeysOpen);
  } else {
    fail(check_names::kContentKeys, Finding::Fixed::contentKeysBroken);
  }
}

void Verification::checkErasure() {
  if (!isUnder(ComplianceRegime::euGDPR)) return;
  if (archive_.policy().cryptoShreddingEnabled) {
    pass(check_names::kErasure, Finding::ErasurePossible{archive_.keys().erasureCount()});
  } else {
    fail(check_names::kErasure, Finding::Fixed::erasureImpossible);
  }
}

bool Verification::isRecoverable() {
  try {
    return recoveryIndexCoverage(archive_);
  } catch (const SQLiteError& error) {
    if (!error.isMediumFailure()) throw;
    return false;  // what the database is missing cannot be asked of it
  }
}

void Verification::checkCatalog() {
  if (isUnder(ComplianceRegime::secRule17a4)) {
    const auto path = archive_.catalog().meta(settings::kDuplicateCopy);
    if (path && !path->empty()) {
      pass(check_names::kDuplicateCopy, Finding::DuplicateCopyConfigured{*path});
    } else {
      fail(check_names::kDuplicateCopy, Finding::Fixed::duplicateCopyMissing);
    }
  }
  enter("Checking the catalog database");
  const auto [isSound, detail] = db_.integrityCheck(!options_.deep);
  const std::string fileSystem = fileSystemName(db_.path());
  add(check_names::kCatalog, isSound ? Outcome::passed : Outcome::failed,
      Finding::CatalogDatabase{isSound ? std::string(Finding::databaseConsistent) : detail,
                               fileSystem, isRecoverable()});
  if (const auto damaged = damagedDictionaries(archive_); !damaged.empty()) {
    fail(check_names::kCatalog, Finding::Verbatim({{kDamagedDictionaries, {join(damaged, ", ")}}}));
  }
  if (isNetworkVolume(db_.path())) fail(check_names::kStorage, Finding::NetworkVolume{fileSystem});
}

void Verification::checkIndex() {
  if (archive_.catalog().supportsFTS()) {
    pass(check_names::kIndex,
         Finding::IndexCovers{db_.count("SELECT COUNT(*) FROM message WHERE erased = 0"),
                              archive_.policy().cryptoShreddingEnabled});
  } else {
    fail(check_names::kIndex, Finding::Fixed::indexUnavailable);
  }
}

void Verification::checkHoldings() {
  enter("Comparing the holdings with the journal");
  HoldingsResult result = compareHoldings(archive_, *journal_, misdated_);
  if (result.faults.empty()) {
    pass(check_names::kHoldings, Finding::Verbatim({std::move(result.agreement)}));
  } else {
    fail(check_names::kHoldings, Finding::Verbatim(std::move(result.faults)));
  }
}

void Verification::addFigures() {
  const ArchiveManifest& manifest = archive_.manifest();
  report_.regimes.assign(manifest.policy.regimes.begin(), manifest.policy.regimes.end());
  report_.archiveName = manifest.name;
  report_.archiveID = manifest.archiveID;
  report_.generatedAt = archive_.now();
  report_.chainHead = archive_.journal().head();
  if (!seals_.empty()) report_.latestSeal = seals_.back();
  if (publicKey_) {
    report_.publicKeyFingerprint = sha256Hex(base64DecodeStrict(*publicKey_).value_or(""));
  }
  const CatalogStats stats = archive_.catalog().stats();
  report_.messageCount = stats.messages;
  report_.attachmentCount = stats.attachments;
  report_.originalBytes = stats.originalBytes;
  report_.storedBytes = stats.storedBytes + stats.blobStoredBytes;
  for (const Row& row :
       db_.query("SELECT payload FROM hold WHERE released_at IS NULL ORDER BY created_at")) {
    report_.activeHolds.push_back(row.string("payload"));
  }
  report_.expiringWithin90Days = expiringSoon(archive_, kExpiringDays);
}

void Verification::record() {
  if (!archive_.journal().isWritable()) return;
  const auto number = [this](Outcome outcome) { return std::to_string(report_.count(outcome)); };
  archive_.journal().append(
      report_.allPassed() ? AuditAction::integrityVerified : AuditAction::integrityFailed,
      std::nullopt,
      {{"deep", options_.deep ? "yes" : "no"},
       {"failed_checks", number(Outcome::failed)},
       {"outstanding_requirements", number(Outcome::outstanding)}});
}

}  // namespace

std::optional<ComplianceReport> verifyIntegrity(MailArchive& archive,
                                                const VerificationOptions& options) {
  try {
    return Verification(archive, options).run();
  } catch (const Cancelled&) {
    return std::nullopt;
  }
}

std::int64_t expiringSoon(MailArchive& archive, int days) {
  const double now = archive.now().seconds;
  return archive.catalog().database().count(
      "SELECT COUNT(*) FROM message WHERE erased = 0 AND expires_at > ? AND expires_at <= ?",
      {now, now + days * kSecondsPerDay});
}

}  // namespace ambervane
