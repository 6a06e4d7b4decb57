#include "platform/code_signature.h"

#include <string_view>

namespace ambervane {

std::string CodeSignature::summary() const {
  if (*this == CodeSignature{}) return "none";
  if (!isValid) return "unsigned or the signature does not verify";
  if (isAdHoc) return "ad-hoc signature — no identity behind it";
  if (!authority) return "signed, authority unavailable";
  if (authority->starts_with("Apple Development")) return "Apple Development certificate";
  // Apple writes "Developer ID Application: Name (team)"; the kind goes, the team is kept once.
  std::string name = *authority;
  constexpr std::string_view kPublisher = "Developer ID Application: ";
  if (name.starts_with(kPublisher)) name.erase(0, kPublisher.size());
  if (teamIdentifier) {
    const std::string bracket = " (" + *teamIdentifier + ")";
    if (!name.ends_with(bracket)) name += bracket;
  }
  return name;
}

CodeSignature currentCodeSignature() { return {}; }

}  // namespace ambervane
