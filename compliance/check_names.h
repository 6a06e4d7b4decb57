#ifndef AMBERVANE_COMPLIANCE_CHECK_NAMES_H_
#define AMBERVANE_COMPLIANCE_CHECK_NAMES_H_

#include <array>

/// What the checks of a report are called; each is the key to its translations.
namespace ambervane::check_names {

inline constexpr const char* kProvenance = "Message provenance";
inline constexpr const char* kChain = "Audit chain";
inline constexpr const char* kSeals = "Chain seals";
inline constexpr const char* kKeyContinuity = "Signing key continuity";
inline constexpr const char* kSealCurrency = "Seal currency";
inline constexpr const char* kPackDigests = "Sealed pack digests";
inline constexpr const char* kWriteProtection = "Write protection on sealed packs";
inline constexpr const char* kTimestamps = "Trusted timestamps on seals";
inline constexpr const char* kCapture = "Continuous capture";
inline constexpr const char* kPublisher = "Publisher identity";
inline constexpr const char* kSecondCopy = "Second copy recorded";
inline constexpr const char* kProcedure = "Verfahrensdokumentation";
inline constexpr const char* kControl = "Periodic control";
inline constexpr const char* kOrganisation = "Organisational duties";  ///< when it cannot be read
inline constexpr const char* kContent = "Message content hashes";
inline constexpr const char* kContentKeys = "Content keys";
inline constexpr const char* kErasure = "Erasure capability";
inline constexpr const char* kDuplicateCopy = "Duplicate copy (SEC 17a-4(f)(3)(iii))";
inline constexpr const char* kCatalog = "Catalog database";
inline constexpr const char* kStorage = "Storage location";
inline constexpr const char* kIndex = "Searchable index";
inline constexpr const char* kHoldings = "Holdings against the journal";
inline constexpr const char* kFigures = "Figures";  ///< when they cannot be read

inline constexpr std::array kAll = {
    kProvenance,      kChain,        kSeals,   kKeyContinuity, kSealCurrency, kPackDigests,
    kWriteProtection, kTimestamps,   kCapture, kPublisher,     kSecondCopy,   kProcedure,
    kControl,         kOrganisation, kContent, kContentKeys,   kErasure,      kDuplicateCopy,
    kCatalog,         kStorage,      kIndex,   kHoldings,      kFigures};

}  // namespace ambervane::check_names

#endif  // AMBERVANE_COMPLIANCE_CHECK_NAMES_H_
