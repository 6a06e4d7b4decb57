#include "evidence/sealer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <limits>
#include <string_view>
#include <system_error>

#include "base/bytes.h"
#include "base/digest.h"
#include "base/file.h"
#include "base/text.h"
#include "platform/immutable_flag.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr int kKeyMode = 0600;
constexpr std::string_view kSealSuffix = ".seal.json";

/// The number in a seal file's name. Absent for other names, and for one that nothing could follow.
std::optional<std::int64_t> sealNumber(const fs::path& file) {
  const fs::path last = file.filename();
  std::string_view name = last.native();
  if (!name.ends_with(kSealSuffix)) return std::nullopt;
  name.remove_suffix(kSealSuffix.size());
  const auto number = parseInteger(name);
  if (number == std::numeric_limits<std::int64_t>::max()) return std::nullopt;
  return number;
}

Ed25519PrivateKey newKey() {
  try {
    return Ed25519PrivateKey::generate();
  } catch (const std::exception& error) {
    throw SealError(SealError::KeyGeneration{error.what()});
  }
}

std::optional<ChainSeal> readSeal(const fs::path& path) {
  const auto bytes = readFileIfPossible(path);
  return bytes ? decodeChainSeal(*bytes) : std::nullopt;
}

}  // namespace

LocalizedMessage SealError::message() const {
  struct Words {
    LocalizedMessage operator()(const KeyGeneration& r) const {
      return {"Cannot create signing key: %@", {r.detail}};
    }
    LocalizedMessage operator()(const KeyUnavailable&) const {
      return {"The archive signing key is not available", {}};
    }
    LocalizedMessage operator()(const BadSignature&) const {
      return {"Seal signature does not verify", {}};
    }
  };
  return std::visit(Words{}, reason_);
}

Sealer::Sealer(fs::path keyURL, fs::path sealsDirectory, Clock clock, bool writable,
               TimestampEnvironment timestamps)
    : keyURL_(std::move(keyURL)),
      sealsDirectory_(std::move(sealsDirectory)),
      clock_(std::move(clock)),
      timestamps_(std::move(timestamps)) {
  if (!writable) return;
  createFolders(sealsDirectory_);
  const fs::path keys = keyURL_.parent_path();
  std::error_code error;
  if (fs::is_directory(keys, error)) return;
  createFolders(keys);
  fs::permissions(keys, fs::perms::owner_all, error);
  if (error) throw FileError(FileError::Action::create, keys, error.value());
}

std::string Sealer::publicKeyBase64() { return base64Encode(privateKey().publicKey()); }

std::string Sealer::publicKeyFingerprint() { return sha256Hex(privateKey().publicKey()); }

std::string Sealer::keyLocationDescription() { return "key file in the archive"; }

/// A key file that is lost or damaged gives way to a new key without complaint: sealing must go on,
/// and every seal carries the key it was made with, so the break shows in their history.
Ed25519PrivateKey Sealer::privateKey() {
  const std::lock_guard guard(mutex_);
  if (cachedKey_) return *cachedKey_;
  if (const auto raw = readFileIfPossible(keyURL_)) cachedKey_ = Ed25519PrivateKey::fromRaw(*raw);
  if (!cachedKey_) {
    Ed25519PrivateKey key = newKey();
    writeFileAtomically(keyURL_, key.raw(), kKeyMode);
    cachedKey_ = std::move(key);
  }
  return *cachedKey_;
}

ChainSeal Sealer::seal(const std::string& chainHead, std::int64_t entryCount,
                       std::int64_t messageCount) {
  const Ed25519PrivateKey key = privateKey();
  ChainSeal seal;
  seal.sealNumber = nextSealNumber();
  // The file keeps whole seconds, and the signature must be checkable from the file alone.
  seal.createdAt = {std::floor(clock_().seconds)};
  seal.chainHead = chainHead;
  seal.entryCount = entryCount;
  seal.messageCount = messageCount;
  seal.publicKey = base64Encode(key.publicKey());
  const Bytes signature = key.sign(seal.signedPayload());
  seal.signature = base64Encode(signature);
  const fs::path path = sealsDirectory_ / fmt::format("{:08}{}", seal.sealNumber, kSealSuffix);
  // Where the folder cannot be listed, the number may be taken: better no seal than one replaced.
  std::error_code ignored;
  if (fs::exists(path, ignored)) throw FileError(FileError::Action::create, path, EEXIST);
  addTimestamp(seal, signature);
  writeFileAtomically(path, encodeChainSeal(seal));
  setImmutable(path);  // the seal stands without the flag too
  return seal;
}

/// Never stands in the way of the seal: without a token, it says why there is none.
void Sealer::addTimestamp(ChainSeal& seal, BytesView signature) const {
  const TimestampOutcome outcome =
      askForTimestamp(authorities_, sha256(signature), kTimestampTimeout, clock_, timestamps_);
  if (outcome.token) {
    seal.timestampToken = outcome.token->token;
    seal.timestampAuthority = outcome.token->authority;
    // As the file holds it; the fraction stays in the token.
    if (const auto time = outcome.token->generatedAt)
      seal.timestampedAt = {std::floor(time->seconds)};
  } else if (!outcome.failure.empty()) {
    seal.timestampFailure = outcome.failure;
  }
}

std::optional<std::string> Sealer::timestampAuthority() const {
  if (authorities_.empty()) return std::nullopt;
  return authorities_.front();
}

void Sealer::setTimestampAuthority(const std::optional<std::string>& url) {
  authorities_.clear();
  if (url) authorities_.push_back(*url);
}

std::vector<fs::path> Sealer::sealFiles() const {
  std::vector<fs::path> files;
  std::error_code error;
  // A folder that cannot be read has no seals to show.
  fs::directory_iterator entry(sealsDirectory_, error);
  while (!error && entry != fs::directory_iterator()) {
    if (entry->path().filename().native().ends_with(kSealSuffix)) files.push_back(entry->path());
    entry.increment(error);
  }
  // Numbers are padded with zeros, so that the order of names is theirs.
  std::ranges::sort(files);
  return files;
}

std::int64_t Sealer::nextSealNumber() const {
  std::int64_t highest = 0;
  for (const fs::path& file : sealFiles()) {
    highest = std::max(highest, sealNumber(file).value_or(0));
  }
  return highest + 1;
}

std::vector<ChainSeal> Sealer::allSeals() const {
  std::vector<ChainSeal> seals;
  for (const fs::path& file : sealFiles()) {
    if (auto seal = readSeal(file)) seals.push_back(std::move(*seal));
  }
  return seals;
}

std::optional<ChainSeal> Sealer::latestSeal() const {
  const auto files = sealFiles();
  for (auto file = files.rbegin(); file != files.rend(); ++file) {
    if (auto seal = readSeal(*file)) return seal;
  }
  return std::nullopt;
}

std::vector<std::string> Sealer::signingKeyHistory() const {
  std::vector<std::string> history;
  for (const ChainSeal& seal : allSeals()) {
    if (std::ranges::find(history, seal.publicKey) == history.end()) {
      history.push_back(seal.publicKey);
    }
  }
  return history;
}

bool Sealer::keyWasRotated() {
  const auto history = signingKeyHistory();
  if (history.empty()) return false;
  try {
    return std::ranges::find(history, publicKeyBase64()) == history.end();
  } catch (const TranslatableError&) {
    return false;
  }
}

bool Sealer::verify(const ChainSeal& seal, const std::optional<std::string>& expectedKey) {
  if (expectedKey && *expectedKey != seal.publicKey) return false;
  const auto publicKey = base64DecodeStrict(seal.publicKey);
  const auto signature = base64DecodeStrict(seal.signature);
  return publicKey && signature && ed25519Verify(*publicKey, seal.signedPayload(), *signature);
}

}  // namespace ambervane
