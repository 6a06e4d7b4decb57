#ifndef AMBERVANE_COMPLIANCE_CONTROL_WORDS_H_
#define AMBERVANE_COMPLIANCE_CONTROL_WORDS_H_

#include <array>

/// The fixed texts of the printed control report and of the procedure template, each the key to its
/// translations. Those that the plain text of a report has as well are not repeated here.
namespace ambervane::control_words {

inline constexpr const char* kTitle =
    "Periodic control of integrity and readability (GeBüV Art. 10 Abs. 1)";
inline constexpr const char* kIdentifier = "Identifier:";
inline constexpr const char* kLocation = "Location:";
inline constexpr const char* kControlledOn = "Date of the control:";
inline constexpr const char* kPerformedBy = "Performed by:";
inline constexpr const char* kNameAndRole = "%1$@, %2$@";
inline constexpr const char* kNote = "Note:";

inline constexpr const char* kResult = "Result";
inline constexpr const char* kAllPassed = "No check failed.";
inline constexpr const char* kSomeFailed =
    "At least one check failed: something is wrong with the records. What it says has to be "
    "cleared "
    "up.";
inline constexpr const char* kCounts = "%1$@ checks: %2$@ passed, %3$@ failed, %4$@ outstanding.";
inline constexpr const char* kOneOpen =
    "%@ requirement is outstanding: a duty of people that has not been met, and that no program "
    "can "
    "meet.";
inline constexpr const char* kSomeOpen =
    "%@ requirements are outstanding: duties of people that have not been met, and that no program "
    "can meet.";

inline constexpr const char* kHoldings = "Holdings";
inline constexpr const char* kEvidence = "Chain head and seal";
inline constexpr const char* kChainHead = "Chain head:";
inline constexpr const char* kSealedHead = "Sealed chain head:";
inline constexpr const char* kTimestamp = "Timestamp:";
inline constexpr const char* kTimestamped =
    "RFC 3161, issued by %1$@ on %2$@. This time is the authority's, not this machine's.";
inline constexpr const char* kNoTimestamp = "none; the seal is dated by this machine's clock alone";
inline constexpr const char* kUnchanged =
    "The hash chain and the seals show that the holdings are unchanged since the last control.";
inline constexpr const char* kOtherArchive =
    "A signed report naming a different chain head from the archive is a report about a different "
    "archive.";

inline constexpr const char* kCheck = "Check";
inline constexpr const char* kPassed = "Passed";
inline constexpr const char* kFailed = "Failed";
inline constexpr const char* kOpen = "Open";

inline constexpr const char* kSignature = "Signature";
inline constexpr const char* kDeclaration =
    "I have carried out this control and taken note of its result.";
inline constexpr const char* kPlaceAndDate = "Place, date";
inline constexpr const char* kDigest =
    "First 16 digits of the SHA-256 of this file, as the archive's journal records it";
inline constexpr const char* kPage = "Page %1$@ of %2$@";

inline constexpr const char* kFromEndOfYear = "from the end of the year";
inline constexpr const char* kFromMessageDate = "from the message date";

inline constexpr std::array kAll = {
    kTitle,       kIdentifier,    kLocation,       kControlledOn, kPerformedBy,  kNameAndRole,
    kNote,        kResult,        kAllPassed,      kSomeFailed,   kCounts,       kOneOpen,
    kSomeOpen,    kHoldings,      kEvidence,       kChainHead,    kSealedHead,   kTimestamp,
    kTimestamped, kNoTimestamp,   kUnchanged,      kOtherArchive, kCheck,        kPassed,
    kFailed,      kOpen,          kSignature,      kDeclaration,  kPlaceAndDate, kDigest,
    kPage,        kFromEndOfYear, kFromMessageDate};

}  // namespace ambervane::control_words

#endif  // AMBERVANE_COMPLIANCE_CONTROL_WORDS_H_
