#ifndef AMBERVANE_DOCTEXT_HELPER_PROTOCOL_H_
#define AMBERVANE_DOCTEXT_HELPER_PROTOCOL_H_

#include <cstdint>
#include <type_traits>

// What this process and its document helper say to each other over a socket: requests, each a
// HelperRequest and the document, and for each an answer, a HelperAnswer and the text. Both ends
// are built together and run on one machine, so the records go over as they lie in memory.

namespace ambervane {

/// Changes with every change of the records; a helper of another version ends at once.
inline constexpr std::uint32_t kHelperVersion = 0x41444801;

enum class HelperTask : std::uint32_t { pdf, office, xml };

struct HelperRequest {
  std::uint32_t version = kHelperVersion;
  HelperTask task = HelperTask::pdf;
  std::uint64_t documentBytes = 0;  ///< that follow
  std::uint64_t textBytes = 0;      ///< limit of the answer
  std::uint64_t unpackedBytes = 0;
  std::uint64_t memoryBytes = 0;  ///< of address space
  std::uint64_t processorMilliseconds = 0;
  std::uint64_t totalMilliseconds = 0;
};

struct HelperAnswer {
  std::uint32_t version = kHelperVersion;
  std::uint32_t reading = 0;    ///< a DocumentReading
  std::uint64_t textBytes = 0;  ///< that follow
};

static_assert(std::is_trivially_copyable_v<HelperRequest> &&
              std::is_trivially_copyable_v<HelperAnswer>);

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_HELPER_PROTOCOL_H_
