#ifndef AMBERVANE_IMAPKIT_CONNECTION_REPORT_H_
#define AMBERVANE_IMAPKIT_CONNECTION_REPORT_H_

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "imapkit/diagnostics.h"
#include "imapkit/imap_credentials.h"
#include "imapkit/imap_records.h"
#include "imapkit/imap_server.h"

namespace ambervane {

/// How far a trial connection got, and what it found.
struct IMAPConnectionReport {
  bool succeeded = false;
  bool reachedServer = false;
  bool completedTLS = false;
  bool authenticated = false;

  std::string host;
  std::uint16_t port = 0;
  bool usesTLS = false;  ///< whether TLS was asked for
  IMAPAccessMode accessMode = IMAPAccessMode::readOnly;
  std::string greeting;
  std::set<std::string> capabilities;           ///< upper case, as they were last told
  std::optional<std::string> acceptedUsername;  ///< where the server took another name
  std::vector<LocalizedMessage> warnings;

  std::vector<IMAPFolder> folders;
  std::map<std::string, std::int64_t> messageCounts;  ///< by path, of mailboxes that opened
  std::map<std::string, std::int64_t> unseenCounts;   ///< by path, where the server told
  std::int64_t inboxMessages = 0;
  std::int64_t inboxUnseen = 0;
  /// Those of mailboxes that show all mail once more (RFC 6154, \All) are not counted again.
  std::int64_t totalMessages = 0;
  std::int64_t totalUnseen = 0;
  /// Why the server let no mailbox be opened; absent when one opened or there is none.
  std::optional<std::string> refusal;

  std::optional<std::string> failure;  ///< the error that ended the trial
  std::optional<IMAPDiagnostic> diagnostic;
};

/// Connects, signs in read-only, lists the mailboxes and opens each with EXAMINE. Changes nothing
/// at the server. A failure is in the report.
IMAPConnectionReport probe(const IMAPServer& server, const IMAPCredentials& credentials);

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_CONNECTION_REPORT_H_
