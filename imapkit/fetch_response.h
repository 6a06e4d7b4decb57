#ifndef AMBERVANE_IMAPKIT_FETCH_RESPONSE_H_
#define AMBERVANE_IMAPKIT_FETCH_RESPONSE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "base/date.h"
#include "imapkit/imap_records.h"
#include "imapkit/imap_response.h"

namespace ambervane {

/// What one FETCH response, or several about the same message, said.
struct FetchItem {
  std::int64_t uid = 0;
  std::optional<std::vector<std::string>> flags = std::nullopt;  ///< as written
  std::optional<Date> internalDate = std::nullopt;
  std::optional<std::int64_t> size = std::nullopt;
  std::optional<Bytes> message = std::nullopt;  ///< the whole of it; of no byte where it is empty
  std::optional<Bytes> header = std::nullopt;   ///< header fields asked for by name

  /// Takes over what `later` says; a body that has come stays.
  void merge(FetchItem&& later);
};

/// Reads an untagged FETCH (RFC 3501 section 7.4.2), whatever the order of its data; bodies are
/// moved out of it. Absent for another response and for one without a UID. A body of NIL is none.
std::optional<FetchItem> parseFetchResponse(IMAPResponse&& response);

/// The flags of the list that are system flags.
std::set<MessageFlag> systemFlags(const std::vector<std::string>& flags);

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_FETCH_RESPONSE_H_
