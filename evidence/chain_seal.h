#ifndef AMBERVANE_EVIDENCE_CHAIN_SEAL_H_
#define AMBERVANE_EVIDENCE_CHAIN_SEAL_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/date.h"

namespace ambervane {

/// A signed statement of where the journal stood. Format: docs/format/seal.md.
struct ChainSeal {
  std::int64_t sealNumber = 0;
  Date createdAt;                     ///< whole seconds
  std::string chainHead;              ///< the journal's head, 64 hexadecimal digits
  std::int64_t entryCount = 0;        ///< the journal's entries
  std::int64_t messageCount = 0;      ///< messages in the archive, erased ones included
  std::string publicKey;              ///< base64 of the 32 bytes of the key that signed
  std::string signature;              ///< base64 of the 64 bytes of the Ed25519 signature
  std::string algorithm = "Ed25519";  ///< the only one there is
  std::optional<std::string> timestampToken;
  std::optional<std::string> timestampAuthority;
  std::optional<Date> timestampedAt;
  std::optional<std::string> timestampFailure;  ///< why authorities that were asked gave no token

  /// The bytes that are signed: number, time, head, counts and algorithm.
  std::string signedPayload() const;
  friend bool operator==(const ChainSeal&, const ChainSeal&) = default;
};

/// The seal as its file holds it: JSON, pretty-printed with sorted keys.
std::string encodeChainSeal(const ChainSeal& seal);
/// Reads a seal file. Absent when it is not JSON, or a key is missing or of a wrong type.
std::optional<ChainSeal> decodeChainSeal(std::string_view text);

}  // namespace ambervane

#endif  // AMBERVANE_EVIDENCE_CHAIN_SEAL_H_
