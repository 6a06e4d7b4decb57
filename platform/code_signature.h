#ifndef AMBERVANE_PLATFORM_CODE_SIGNATURE_H_
#define AMBERVANE_PLATFORM_CODE_SIGNATURE_H_

#include <optional>
#include <string>

namespace ambervane {

/// The code signature of the running program. The default is the unsigned state.
struct CodeSignature {
  std::optional<std::string> authority;  ///< name of the leaf certificate
  std::optional<std::string> teamIdentifier;
  std::optional<std::string> identifier;  ///< of the program, as signed
  bool isAdHoc = false;                   ///< signed without a certificate
  bool isValid = false;                   ///< the signature was there and verified

  /// Who signed, for the record: the publisher's name with the team in brackets for a Developer ID
  /// signature, otherwise what stands in its place. "none" when there is no signature at all.
  std::string summary() const;
  friend bool operator==(const CodeSignature&, const CodeSignature&) = default;
};

/// The signature of this process's program. Linux signs no programs: always the unsigned state.
CodeSignature currentCodeSignature();

}  // namespace ambervane

#endif  // AMBERVANE_PLATFORM_CODE_SIGNATURE_H_
