// Creating, opening, sealing and closing an archive. The order of steps is part of the format: what
// a crash leaves behind at each of them is something the next opening knows how to repair.

#include "store/mail_archive.h"

#include <algorithm>
#include <array>
#include <map>
#include <system_error>

#include "base/digest.h"
#include "base/file.h"
#include "base/text.h"
#include "doctext/document_helper.h"
#include "evidence/timestamp_defaults.h"
#include "platform/code_signature.h"
#include "platform/host.h"
#include "platform/immutable_flag.h"
#include "resources/archive_format.h"
#include "store/archive_error.h"
#include "store/content_erasure.h"
#include "store/lost_messages.h"
#include "store/pack_format.h"
#include "store/policy_change.h"
#include "store/unkept_changes.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

const char* onOff(bool value) { return value ? "on" : "off"; }

/// Refuses a place that holds anything; an empty folder is used as it is.
void requireEmptyDestination(const fs::path& url) {
  std::error_code error;
  const auto status = fs::symlink_status(url, error);
  if (status.type() == fs::file_type::not_found) return;
  const fs::directory_iterator entries(url, error);
  if (error == std::errc::not_a_directory || (!error && entries != fs::directory_iterator())) {
    throw ArchiveError(ArchiveError::DestinationNotEmpty{url.native()});
  }
  if (error) throw FileError(FileError::Action::list, url, error.value());
}

constexpr const char* kCatalogName = "catalog.sqlite";
constexpr const char* kNewCatalogName = "catalog.sqlite.rebuilding";
/// In the catalog's meta table: "yes" in one made because the archive's was lost.
constexpr const char* kCatalogLostKey = "catalog_lost";
/// What the files of an SQLite database have behind its name.
constexpr std::array kDatabaseSuffixes = {"", "-wal", "-shm"};

void removeDatabase(const fs::path& path) {
  for (const char* suffix : kDatabaseSuffixes) {
    std::error_code error;
    fs::remove(path.native() + suffix, error);
    if (error) throw FileError(FileError::Action::remove, path.native() + suffix, error.value());
  }
}

bool isWriteProtected(const fs::path& path) {
  std::error_code error;
  const auto status = fs::status(path, error);
  if (error || !fs::exists(status)) return false;
  return (status.permissions() & fs::perms::owner_write) == fs::perms::none || isImmutable(path);
}

/// The numbers of the pack files in the folder, ascending. A file counts by its exact name and its
/// first bytes, so that a stray one cannot lead the numbering astray.
std::vector<std::int64_t> packsOnDisk(const fs::path& folder) {
  std::vector<std::int64_t> packs;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    const auto id = parseInteger(it->path().stem().native());
    if (!id || *id < 1 || it->path().filename() != PackStore::packName(*id)) continue;
    try {
      if (MappedFile::open(it->path())->bytes().starts_with(kPackMagic)) packs.push_back(*id);
    } catch (const FileError&) {
      packs.push_back(*id);  // there, and not to be read: its number is taken all the same
    }
  }
  std::sort(packs.begin(), packs.end());
  return packs;
}

/// "name.tmp-123", left by a process that died while it replaced "name".
bool isTemporaryName(const std::string& name) {
  const auto at = name.rfind(".tmp-");
  return at != std::string::npos && at + 5 < name.size() &&
         std::all_of(name.begin() + static_cast<std::ptrdiff_t>(at) + 5, name.end(), isAsciiDigit);
}

}  // namespace

std::unique_ptr<MailArchive> MailArchive::create(const fs::path& url, const std::string& name,
                                                 const RetentionPolicy& policy,
                                                 CompressionEffort effort,
                                                 ArchiveEnvironment environment) {
  requireEmptyDestination(url);
  createFolders(url);

  ArchiveManifest manifest;
  manifest.archiveID = randomUuid();
  manifest.name = repairedUtf8(name);
  manifest.createdAt = environment.clock();
  manifest.createdBy = "Ambervane on " + localHostName();
  manifest.policy = policy;
  manifest.compressionEffort = effort;
  manifest.save(url / "archive.json");

  auto archive = std::make_unique<MailArchive>(url, OpenMode::readWrite, std::move(environment));
  const CodeSignature signature = currentCodeSignature();
  archive->journal().append(AuditAction::archiveCreated, std::nullopt,
                            {{"name", manifest.name},
                             {"regimes", listOf(policy.regimes)},
                             {"retention_years", std::to_string(policy.minimumYears())},
                             {"worm", onOff(policy.wormEnforcement)},
                             {"crypto_shredding", onOff(policy.cryptoShreddingEnabled)},
                             {"format_version", std::to_string(manifest.formatVersion)},
                             {"compression", std::string(rawValue(effort))},
                             {"signed_by", signature.summary()},
                             {"team", signature.teamIdentifier.value_or("none")}});
  archive->sealNow();
  return archive;
}

MailArchive::MailArchive(fs::path url, OpenMode mode, ArchiveEnvironment environment)
    : url_(std::move(url)), environment_(std::move(environment)) {
  manifest_ = ArchiveManifest::load(url_ / "archive.json", environment_.clock());
  if (manifest_.minimumReaderVersion > ArchiveManifest::kUnderstoodVersion) {
    throw ArchiveError(ArchiveError::VersionUnsupported{manifest_.formatVersion,
                                                        manifest_.minimumReaderVersion,
                                                        ArchiveManifest::kUnderstoodVersion});
  }
  decideMode(mode);
  if (mode == OpenMode::rebuild && readOnly_) throw ArchiveError(ArchiveError::ReadOnly{});
  if (!readOnly_) {
    keepFormatDescriptionCurrent();
    lock_ = environment_.archiveLock
                ? std::make_unique<ArchiveLock>(url_, now(), environment_.archiveLock)
                : std::make_unique<ArchiveLock>(url_, now());
  }
  openParts(mode);
  if (mode == OpenMode::rebuild) {
    removeTemporaryFiles();
    createFolders(url_ / "export");
  } else if (!readOnly_) {
    prepareForWriting();
  }
}

MailArchive::~MailArchive() = default;

void MailArchive::decideMode(OpenMode mode) {
  storage_ = storageAccess(url_);
  const bool isNewer = manifest_.formatVersion > ArchiveManifest::kFormatVersion;
  readOnly_ = mode == OpenMode::readOnly || isNewer || storage_ != StorageAccess::writable;
  if (isNewer) {
    newerFormatNotice_ = "This archive was written in format version " +
                         std::to_string(manifest_.formatVersion) +
                         "; this build understands version 3. It can be read, but writing to it "
                         "here would discard whatever the newer version records.";
  }
}

void MailArchive::keepFormatDescriptionCurrent() {
  // An archive of an older format keeps the document that describes it.
  if (manifest_.formatVersion != ArchiveManifest::kFormatVersion) return;
  const fs::path path = url_ / "FORMAT.md";
  if (readFileIfPossible(path) == Bytes(resources::archiveFormat())) return;
  try {
    writeFileAtomically(path, resources::archiveFormat());
  } catch (const FileError&) {
    // A convenience for readers of the far future; the mail does not depend on it.
  }
}

void MailArchive::openParts(OpenMode mode) {
  const fs::path catalogPath = url_ / (mode == OpenMode::rebuild ? kNewCatalogName : kCatalogName);
  const bool isRebuild = mode == OpenMode::rebuild;
  if (isRebuild) removeDatabase(catalogPath);
  std::error_code missing;
  const bool isLost = !isRebuild &&
                      (!fs::exists(catalogPath, missing) || fs::is_empty(catalogPath, missing)) &&
                      !packFiles().empty();
  if (readOnly_) {
    catalog_ = Catalog::reading(catalogPath, storage_ == StorageAccess::readOnlyMedium);
  } else {
    catalog_ = std::make_unique<Catalog>(catalogPath, environment_.clock);
  }
  noteLostCatalog(isLost);
  packs_ = std::make_unique<PackStore>(url_ / "packs", manifest_.maxPackBytes, readOnly_);
  sidecars_ = std::make_unique<RecoverySidecars>(*packs_);

  // What is searched and read is recorded wherever the medium can be written, even by an opening
  // that changes nothing else; but such an opening makes no file that is missing.
  const fs::path journalPath = url_ / "chain" / "journal.jsonl";
  std::error_code ignored;
  const bool journals =
      storage_ == StorageAccess::writable && (!readOnly_ || fs::exists(journalPath, ignored));
  journal_ = std::make_unique<AuditJournal>(
      journalPath, AuditJournal::defaultActor, journals,
      environment_.journalLock ? environment_.journalLock : systemFileLock, environment_.clock);
  sealer_ = std::make_unique<Sealer>(url_ / "keys" / "seal.key", url_ / "chain" / "seals",
                                     environment_.clock, !readOnly_, environment_.timestamps);
  sealer_->setTimestampAuthorities(timestampAuthorities(catalog_->meta("timestamp_authority")));
  if (!readOnly_) keys();
  dictionaries_ = std::make_unique<DictionaryKeeper>(*catalog_, url_ / "dict",
                                                     manifest_.dictionaryTrainingSample);
}

/// An opening for writing makes a catalog where there is none. The archive must not pass for whole
/// because of that, neither now nor the next time.
void MailArchive::noteLostCatalog(bool isLost) {
  if (isLost && !readOnly_) catalog_->setMeta(kCatalogLostKey, "yes");
  if (!isLost && catalog_->meta(kCatalogLostKey).value_or("") != "yes") return;
  notices_.emplace_back(
      "The catalog is missing. The mail is still in the pack files, but it cannot be found until "
      "the catalog is rebuilt from them: ambervane rebuild-catalog <archive>");
}

void MailArchive::openKeys() {
  const fs::path database = url_ / "keys" / "content-keys.sqlite";
  const fs::path masterKey = url_ / "keys" / "master.key";
  keys_ = readOnly_ ? ContentKeyStore::reading(database, masterKey,
                                               storage_ == StorageAccess::readOnlyMedium)
                    : ContentKeyStore::writing(database, masterKey, environment_.clock);
}

ContentKeyStore& MailArchive::keys() {
  std::call_once(keysOpened_, [this] { openKeys(); });
  return *keys_;
}

void MailArchive::prepareForWriting() {
  removeTemporaryFiles();
  createFolders(url_ / "export");
  if (nameUnkeptChange(*this)) {
    notices_.emplace_back("The last change was interrupted and has no effect. Make it again.");
  }
  completePolicyChange(*this);
  dictionaries_->prepareForWriting();
  if (const std::int64_t lost = nameLostMessages(*this); lost > 0) {
    notices_.push_back(
        "Messages that were being stored when the program was ended were not kept: " +
        std::to_string(lost) + ". Import the same source again.");
  }
  settleCurrentPack();
  try {
    if (completeErasures(*this)) sealNow();
  } catch (const TranslatableError& error) {
    // Another process may be reading the keys. What is left to do is known, and tried again.
    notices_.push_back(std::string("An erasure that was interrupted could not be completed: ") +
                       error.what());
  }
}

void MailArchive::removeTemporaryFiles() {
  for (const char* folder : {"", "packs", "dict", "keys", "chain", "chain/seals"}) {
    std::error_code error;
    for (fs::directory_iterator it(*folder == '\0' ? url_ : url_ / folder, error), end;
         !error && it != end; it.increment(error)) {
      std::error_code ignored;
      if (isTemporaryName(it->path().filename().native())) fs::remove(it->path(), ignored);
    }
  }
  // Of a rebuild that was broken off; that of one under way is the catalog in use.
  const fs::path unfinished = url_ / kNewCatalogName;
  if (catalog_->database().path() != unfinished) removeDatabase(unfinished);
}

void MailArchive::settleCurrentPack() {
  currentPack_ = catalog_->currentPackID();
  const auto onDisk = packFiles();
  const std::int64_t highest = onDisk.empty() ? 0 : onDisk.back();
  if (isCurrentPackCutShort()) {
    // Appending to it would put new records where old rows point.
    const std::string name = PackStore::packName(currentPack_);
    journal_->append(AuditAction::integrityFailed, name,
                     {{"problem", "the pack file is missing or shorter than the catalog says"},
                      {"expected_bytes", std::to_string(catalog_->packBytes(currentPack_))}});
    notices_.push_back("The pack file " + name +
                       " is missing or shorter than it was; messages in it may be lost. Restore it "
                       "from a backup.");
    switchToPack(std::max(highest, currentPack_) + 1);
    return;
  }
  // A crash between sealing a full pack on disk and the catalog's commit leaves a pack that is
  // write-protected, or overtaken by higher ones, and not yet sealed in the catalog.
  for (const std::int64_t pack : onDisk) {
    if (pack < currentPack_) continue;
    if (pack < highest || isWriteProtected(packs_->packURL(pack))) sealPack(pack);
  }
  const bool isFree = !isWriteProtected(packs_->packURL(std::max(highest, currentPack_)));
  switchToPack(std::max(highest, currentPack_) + (isFree ? 0 : 1));
}

bool MailArchive::isCurrentPackCutShort() {
  const std::int64_t expected = catalog_->packBytes(currentPack_);
  if (expected == 0) return false;
  std::error_code error;
  const auto size = fs::file_size(packs_->packURL(currentPack_), error);
  return error || static_cast<std::int64_t>(size) < expected;
}

void MailArchive::sealPack(std::int64_t packID) {
  const auto sealed = packs_->seal(packID, policy().wormEnforcement);
  catalog_->registerPack(packID);
  catalog_->markPackSealed(packID, sealed.sha256, sealed.bytes, sealed.immutable);
  journal_->append(AuditAction::packSealed, PackStore::packName(packID),
                   {{"sha256", sealed.sha256}, {"bytes", std::to_string(sealed.bytes)}});
}

void MailArchive::switchToPack(std::int64_t packID) {
  packs_->openForWriting(packID);
  if (catalog_->currentPackID() != packID) catalog_->setCurrentPack(packID);
  catalog_->registerPack(packID);
  currentPack_ = packID;
}

std::vector<std::int64_t> MailArchive::packFiles() const { return packsOnDisk(url_ / "packs"); }

void MailArchive::startCatalogAnew() {
  if (readOnly_) throw ArchiveError(ArchiveError::ReadOnly{});
  flushSolidBlock();
  const fs::path path = url_ / kNewCatalogName;
  catalog_->goOnWith(path, [&path] { removeDatabase(path); });
  // What is lost with the power is made anew; `installCatalog` flushes the whole.
  catalog_->database().execute("PRAGMA synchronous=OFF");
  tagRules_.forget();
  dictionaries_ = std::make_unique<DictionaryKeeper>(*catalog_, url_ / "dict",
                                                     manifest_.dictionaryTrainingSample);
  dictionaries_->prepareForWriting();
  const auto packs = packFiles();
  catalog_->setCurrentPack(packs.empty() ? 1 : packs.back());
  settleCurrentPack();
  for (const std::int64_t pack : packs) catalog_->registerPack(pack);
}

void MailArchive::installCatalog(const std::string& keptAs) {
  noteDurablePack();
  catalog_->database().checkpoint();
  const fs::path made = catalog_->database().path();
  const fs::path path = url_ / kCatalogName;
  catalog_->goOnWith(path, [&] {
    AppendFile::open(made).sync();
    for (const char* suffix : kDatabaseSuffixes) {
      std::error_code ignored;
      if (!fs::exists(path.native() + suffix, ignored)) continue;
      renameFile(path.native() + suffix, url_ / (keptAs + suffix));
    }
    renameFile(made, path);
  });
}

std::int64_t MailArchive::nextPack(std::int64_t size) {
  if (readOnly_) throw ArchiveError(ArchiveError::ReadOnly{});
  if (packs_->needsRollover(size)) {
    flushSidecars();
    sealPack(currentPack_);
    switchToPack(currentPack_ + 1);
  }
  return currentPack_;
}

void MailArchive::synchronize() {
  packs_->flush();
  flushSidecars();
  journal_->flush();
}

void MailArchive::flushSidecars() {
  sidecars_->synchronize();
  if (const auto failure = sidecars_->takeFailure()) {
    journal_->append(
        AuditAction::integrityFailed, "recovery-index",
        {{"error", *failure},
         {"note", "messages stored now cannot be found again if the catalog is lost as well"}});
    notices_.push_back("A recovery sidecar could not be written: " + *failure);
  }
}

std::size_t MailArchive::flushSolidBlock() {
  if (readOnly_ || solidBlock_.isEmpty()) return 0;
  if (catalog_->batchDepth() > 0) return writeSolidBlock(*this, solidBlock_.release());
  // Outside a batch the order of a batch's end holds all the same: record first, rows last.
  catalog_->beginBatch();
  try {
    const std::size_t count = writeSolidBlock(*this, solidBlock_.release());
    packs_->flush();
    noteDurablePack();
    flushSidecars();
    catalog_->commitBatch();
    solidBlock_.commit();
    return count;
  } catch (...) {
    catalog_->rollbackBatch();
    solidBlock_.rollback();
    throw;
  }
}

void MailArchive::requireReader(int version) {
  if (readOnly_ || manifest_.minimumReaderVersion >= version) return;
  ArchiveManifest raised = manifest_;
  raised.minimumReaderVersion = version;
  raised.save(url_ / "archive.json");
  manifest_ = std::move(raised);
}

void MailArchive::replacePolicy(const RetentionPolicy& policy) {
  if (readOnly_) throw ArchiveError(ArchiveError::ReadOnly{});
  ArchiveManifest changed = manifest_;
  changed.policy = policy;
  changed.policy.cryptoShreddingEnabled = manifest_.policy.cryptoShreddingEnabled;
  changed.policy.wormEnforcement = manifest_.policy.wormEnforcement;
  changed.save(url_ / "archive.json");
  manifest_ = std::move(changed);
}

void MailArchive::noteDurablePack() {
  catalog_->notePackBytes(currentPack_, packs_->openForWriting(currentPack_));
}

ChainSeal MailArchive::sealNow() {
  if (readOnly_) throw ArchiveError(ArchiveError::ReadOnly{});
  flushSolidBlock();
  // A seal must never anchor an entry that a crash could still take away.
  synchronize();
  return writeSeal();
}

ChainSeal MailArchive::writeSeal() {
  const std::int64_t messages = catalog_->database().count("SELECT COUNT(*) FROM message");
  ChainSeal seal = sealer_->seal(journal_->head(), journal_->count(), messages);
  journal_->append(AuditAction::chainSealed, std::to_string(seal.sealNumber),
                   {{"head", seal.chainHead},
                    {"entries", std::to_string(seal.entryCount)},
                    {"messages", std::to_string(seal.messageCount)},
                    {"key", seal.publicKey.substr(0, 16)}});
  entriesSinceSeal_ = 0;
  return seal;
}

void MailArchive::sealIfDue() {
  if (!isSealDue() || catalog_->batchDepth() > 0) return;
  flushSolidBlock();
  synchronize();
  try {
    writeSeal();
  } catch (const TranslatableError&) {
    // The count stays, so the next batch tries again; a run's end seals in any case.
  }
}

void MailArchive::recordFailedClose(const std::string& error) noexcept {
  try {
    journal_->append(
        AuditAction::integrityFailed, "close",
        {{"error", error}, {"note", "messages held in an unflushed block were not written"}});
  } catch (const std::exception&) {
    // The failure itself is told all the same.
  }
}

void MailArchive::close() {
  std::exception_ptr failure;
  try {
    flushSolidBlock();
    packs_->flush();
  } catch (const std::exception& error) {
    failure = std::current_exception();
    recordFailedClose(error.what());
  }
  if (!readOnly_) flushSidecars();
  sidecars_.reset();
  packs_.reset();
  journal_.reset();
  if (!readOnly_) catalog_->database().checkpoint();
  sealer_.reset();
  keys_.reset();
  dictionaries_.reset();
  catalog_.reset();
  lock_.reset();
  if (failure) std::rethrow_exception(failure);
}

const AttachmentTextReader* MailArchive::attachmentText() {
  if (!policy().indexAttachmentText) return nullptr;
  if (!attachmentText_) {
    attachmentText_ =
        std::make_unique<AttachmentTextReader>(findDocumentHelper().value_or(fs::path()));
  }
  return attachmentText_.get();
}

}  // namespace ambervane
