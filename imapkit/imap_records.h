#ifndef AMBERVANE_IMAPKIT_IMAP_RECORDS_H_
#define AMBERVANE_IMAPKIT_IMAP_RECORDS_H_

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "base/date.h"
#include "mailcore/message_flag.h"

namespace ambervane {

/// A mailbox as LIST shows it.
struct IMAPFolder {
  std::string path;                       ///< UTF-8
  std::string delimiter = {};             ///< between the names of a path; empty: no hierarchy
  std::set<std::string> attributes = {};  ///< lower case, such as "\noselect"

  bool isSelectable() const { return !attributes.contains("\\noselect"); }
  bool isInbox() const noexcept;
  /// What the mailbox is for (RFC 6154), such as "all", "sent" or "junk"; absent where the server
  /// does not say.
  std::optional<std::string> specialUse() const;
  friend bool operator==(const IMAPFolder&, const IMAPFolder&) = default;
};

/// What a server says of a mailbox. A number is 0 when it did not say.
struct IMAPMailboxStatus {
  std::int64_t messages = 0;
  std::int64_t recent = 0;
  std::int64_t unseen = 0;  ///< from `select` the number of the first unseen message, if anything
  std::int64_t uidNext = 0;
  std::int64_t uidValidity = 0;
  std::optional<std::int64_t> highestModSeq = std::nullopt;
  bool readOnly = false;  ///< opened with EXAMINE
  std::vector<std::string> permanentFlags = {};
  friend bool operator==(const IMAPMailboxStatus&, const IMAPMailboxStatus&) = default;
};

/// A fetched message.
struct IMAPMessage {
  std::int64_t uid = 0;
  std::set<MessageFlag> flags = {};
  std::vector<std::string> rawFlags = {};  ///< as the server wrote them
  std::optional<Date> internalDate = std::nullopt;
  std::int64_t size = 0;  ///< the server's RFC822.SIZE
  Bytes raw = {};         ///< may be empty: some servers deliver an empty message
  friend bool operator==(const IMAPMessage&, const IMAPMessage&) = default;
};

/// What is known of a message without its body.
struct IMAPEnvelope {
  std::int64_t uid = 0;
  std::int64_t size = 0;
  std::optional<Date> internalDate = std::nullopt;
  std::set<MessageFlag> flags = {};
  friend bool operator==(const IMAPEnvelope&, const IMAPEnvelope&) = default;
};

/// Where an appended message went; absent where the server does not say (no UIDPLUS).
struct IMAPAppendResult {
  std::optional<std::int64_t> uidValidity = std::nullopt;
  std::optional<std::int64_t> uid = std::nullopt;
  friend bool operator==(const IMAPAppendResult&, const IMAPAppendResult&) = default;
};

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_IMAP_RECORDS_H_
