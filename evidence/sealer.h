#ifndef AMBERVANE_EVIDENCE_SEALER_H_
#define AMBERVANE_EVIDENCE_SEALER_H_

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "base/date.h"
#include "base/ed25519.h"
#include "base/localized_message.h"
#include "evidence/chain_seal.h"
#include "evidence/timestamp_round.h"

namespace ambervane {

class SealError final : public TranslatableError {
 public:
  struct KeyGeneration {
    std::string detail;
  };
  struct KeyUnavailable {};
  struct BadSignature {};
  using Reason = std::variant<KeyGeneration, KeyUnavailable, BadSignature>;
  explicit SealError(Reason reason) : reason_(std::move(reason)) {}
  const Reason& reason() const noexcept { return reason_; }
  LocalizedMessage message() const override;

 private:
  Reason reason_;
};

/// Owns the archive's signing key and its folder of seal files. A seal once written is never
/// changed. Loading the key is safe from any thread; sealing relies on the archive's write lock.
class Sealer {
 public:
  static constexpr double kTimestampTimeout = 10;  ///< seconds

  /// When `writable`, creates `sealsDirectory` and the folder of `keyURL` (for the owner alone)
  /// where they are missing; throws FileError. Does not touch the key.
  Sealer(std::filesystem::path keyURL, std::filesystem::path sealsDirectory,
         Clock clock = systemNow, bool writable = true, TimestampEnvironment timestamps = {});
  Sealer(const Sealer&) = delete;
  Sealer& operator=(const Sealer&) = delete;

  /// Base64 of the public key. This and the fingerprint load the key, or create it where its file
  /// is missing or damaged; they throw FileError or SealError.
  std::string publicKeyBase64();
  /// SHA-256 of the 32 bytes of the public key, in lower-case hexadecimal.
  std::string publicKeyFingerprint();
  /// Where the key lies, for records.
  static std::string keyLocationDescription();

  /// The URLs asked for a timestamp, in this order; none at first. To be set before seals are made.
  const std::vector<std::string>& timestampAuthorities() const noexcept { return authorities_; }
  void setTimestampAuthorities(std::vector<std::string> urls) { authorities_ = std::move(urls); }
  /// A view on the list: its first URL; setting makes it a list of that one, or empties it.
  std::optional<std::string> timestampAuthority() const;
  void setTimestampAuthority(const std::optional<std::string>& url);

  /// Signs the next seal, asks for a timestamp over the signature, writes the seal with what came
  /// of that, and makes its file immutable where the system can. Each authority may take
  /// `kTimestampTimeout` seconds. Throws FileError or SealError; there is then no file of that
  /// number or, if only the flush of the folder failed, a whole one.
  ChainSeal seal(const std::string& chainHead, std::int64_t entryCount, std::int64_t messageCount);

  /// 1, or one more than the highest number among the seal files, readable or not.
  std::int64_t nextSealNumber() const;
  /// The seals that can be read, oldest first; the others are passed over.
  std::vector<ChainSeal> allSeals() const;
  std::optional<ChainSeal> latestSeal() const;
  /// Every public key (base64) over all seals, each at its first place.
  std::vector<std::string> signingKeyHistory() const;
  /// Whether seals exist and none carries the present key; false when the key cannot be got.
  bool keyWasRotated();

  /// Whether the signature of `seal` holds under the key it carries, which must be `expectedKey`
  /// (base64) when one is given. Never throws but for want of memory.
  static bool verify(const ChainSeal& seal,
                     const std::optional<std::string>& expectedKey = std::nullopt);

 private:
  Ed25519PrivateKey privateKey();
  void addTimestamp(ChainSeal& seal, BytesView signature) const;
  std::vector<std::filesystem::path> sealFiles() const;

  const std::filesystem::path keyURL_;
  const std::filesystem::path sealsDirectory_;
  const Clock clock_;
  const TimestampEnvironment timestamps_;
  std::vector<std::string> authorities_;
  std::mutex mutex_;  ///< guards `cachedKey_` and the making of a key
  std::optional<Ed25519PrivateKey> cachedKey_;
};

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_SEALER_H_
