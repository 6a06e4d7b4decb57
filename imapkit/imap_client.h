#ifndef AMBERVANE_IMAPKIT_IMAP_CLIENT_H_
#define AMBERVANE_IMAPKIT_IMAP_CLIENT_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/date.h"
#include "imapkit/fetch_response.h"
#include "imapkit/imap_credentials.h"
#include "imapkit/imap_error.h"
#include "imapkit/imap_records.h"
#include "imapkit/imap_response_reader.h"
#include "imapkit/imap_server.h"
#include "imapkit/imap_transport.h"

namespace ambervane {

/// A session with one server: `connect`, `login`, then anything else, `logout`. One thread, one
/// session; several connections are several clients.
///
/// A read-only client sends nothing that changes a mailbox: whatever would is refused before it
/// reaches the server, SELECT included. No client issues STORE, EXPUNGE, COPY, MOVE or DELETE.
///
/// All operations throw IMAPError. Those of `Reason` that leave the session usable are named there.
/// Texts of errors quote the server unchanged, save that a secret in them is masked.
class IMAPClient {
 public:
  /// No network activity. When `shouldCancel` says yes, what is being waited for ends with
  /// IMAPError (Cancelled); it is asked on the calling thread.
  IMAPClient(IMAPServer server, IMAPAccessMode accessMode,
             std::function<bool()> shouldCancel = nullptr);
  /// Closes the connection, without a LOGOUT.
  ~IMAPClient();
  IMAPClient(const IMAPClient&) = delete;
  IMAPClient& operator=(const IMAPClient&) = delete;

  /// Opens the connection and reads the greeting. Refuses a server that sends BYE
  /// (ConnectionFailed), that is no IMAP server (ProtocolViolation), and an unencrypted one that
  /// offers STARTTLS (TLSRequired).
  void connect();
  void refreshCapabilities();
  /// Every refusal by the server is a `Diagnosed`. Afterwards CONDSTORE and UTF8=ACCEPT are
  /// enabled, as far as the server knows them.
  void login(const IMAPCredentials& credentials);
  /// Says goodbye, waiting no longer than one timeout, and closes. After a cancelled or abandoned
  /// operation, and on a connection that failed, only closes.
  void logout() noexcept;

  /// The selectable mailboxes that match, in the server's order.
  std::vector<IMAPFolder> listFolders(const std::string& reference = "",
                                      const std::string& pattern = "*");
  /// Opens a mailbox, with EXAMINE when `readOnly`. Throws Unsupported when a read-only client is
  /// to SELECT.
  IMAPMailboxStatus select(const std::string& mailbox, bool readOnly);
  IMAPMailboxStatus status(const std::string& mailbox);
  /// Throws Unsupported on a read-only client, as does `append`.
  void createFolder(const std::string& path);
  /// UIDs in the selected mailbox, ascending. `since` and `before` count whole days in UTC of the
  /// internal date. With a `minimumUID` beyond the last message the server answers with the last.
  std::vector<std::int64_t> searchUIDs(std::optional<Date> since = std::nullopt,
                                       std::optional<Date> before = std::nullopt,
                                       std::optional<std::int64_t> minimumUID = std::nullopt);

  /// Takes the messages of one batch, in the order received; false ends the fetch.
  using BatchSink = std::function<bool(std::vector<IMAPMessage> batch)>;
  /// Takes one message; false ends the fetch.
  using MessageSink = std::function<bool(IMAPMessage message)>;

  /// Fetches whole messages of the selected mailbox, without marking them read, in batches of
  /// `batchSize` (at least 1) in the order of `uids`. While `sink` works on a batch, the requests
  /// for the next ones are with the server and their messages on the way; one batch is in memory
  /// beside what the sink keeps.
  ///
  /// A UID for which no body arrives is in no batch; one whose body is empty is, and so is each
  /// message once only. Of a batch that the server refuses with NO the messages that did arrive are
  /// handed on, and the others are asked for again at the end, one by one; CommandFailed is thrown
  /// only when nothing at all arrived. An empty `uids` sends nothing.
  ///
  /// When `sink` returns false or throws, answers may still be on the way: the next command reads
  /// and drops them first, `logout` just closes.
  void fetchBatches(std::span<const std::int64_t> uids, std::size_t batchSize,
                    const BatchSink& sink);
  /// As `fetchBatches`, message by message.
  void fetchMessages(std::span<const std::int64_t> uids, std::size_t batchSize,
                     const MessageSink& sink);
  std::vector<IMAPEnvelope> fetchEnvelopes(std::span<const std::int64_t> uids,
                                           std::size_t batchSize);
  /// Message-ID by UID, without angle brackets; messages without one are left out.
  std::map<std::int64_t, std::string> fetchMessageIDs(std::span<const std::int64_t> uids,
                                                      std::size_t batchSize);

  /// Puts a message into a mailbox. \Recent and \Deleted are left out of `flags`.
  IMAPAppendResult append(BytesView message, const std::string& mailbox,
                          const std::set<MessageFlag>& flags = {},
                          std::optional<Date> internalDate = std::nullopt);

  const IMAPServer& server() const noexcept { return transport_.server(); }
  IMAPAccessMode accessMode() const noexcept { return accessMode_; }
  /// Upper case.
  const std::set<std::string>& capabilities() const noexcept { return capabilities_; }
  bool hasCapability(const std::string& name) const { return capabilities_.contains(name); }
  /// The server's first response, as it stood.
  const std::string& greeting() const noexcept { return greeting_; }
  /// Set when the sign-in succeeded under another name than the one given.
  const std::optional<std::string>& acceptedUsername() const noexcept { return acceptedUsername_; }
  const std::optional<std::string>& selected() const noexcept { return selected_; }
  const std::optional<IMAPMailboxStatus>& selectedStatus() const noexcept {
    return selectedStatus_;
  }
  /// Counters, and how far `connect` got.
  const IMAPTransport& transport() const noexcept { return transport_; }
  void setTraceHandler(IMAPTransport::TraceHandler handler) {
    transport_.setTraceHandler(std::move(handler));
  }

 private:
  using OnResponse = std::function<void(IMAPResponse& response)>;
  /// A UID FETCH that has been sent.
  struct Fetch {
    std::string tag;
    std::size_t lineBytes = 0;
    std::vector<std::int64_t> uids;  ///< ascending
    std::vector<FetchItem> items;    ///< in the order in which the server first spoke of them
    std::map<std::int64_t, std::size_t> itemOf;  ///< by UID
    std::optional<IMAPResponse> answer;
  };

  // The way of every command.
  void refuseForbidden(std::string_view command) const;
  std::string begin(std::string_view command);
  IMAPResponse finish(const std::string& tag, const OnResponse& onUntagged,
                      const OnResponse& onContinuation = nullptr);
  IMAPResponse execute(std::string_view command, const OnResponse& onUntagged = nullptr,
                       const OnResponse& onContinuation = nullptr);
  void requireSuccess(const IMAPResponse& answer, std::string_view command);
  void orClose(const std::function<void()>& step);

  void refuseUpgrade() const;
  void setCapabilities(std::string_view words);
  void enableExtensions();

  void withSecret(std::string_view secret, const std::function<void()>& step);
  void signInWithPassword(const std::string& username, const Secret& password);
  void passwordLogin(const std::string& username, const Secret& password);
  void authenticatePlain(const std::string& username, const Secret& password);
  void signInWithToken(const IMAPCredentials& credentials, const Secret& token);
  void authenticateXOAuth2(const std::string& username, const Secret& token, IMAPAccountKind kind);

  std::string wireName(const std::string& path) const;
  std::string quotedName(const std::string& path) const;

  bool mayBeginFetch() const noexcept;
  void beginFetch(std::span<const std::int64_t> uids, std::string_view items);
  Fetch finishFetch();
  void noteFetched(IMAPResponse& response);
  void dropAbandoned();
  void pipeline(std::span<const std::int64_t> uids, std::size_t batchSize, std::string_view items,
                const std::function<bool(Fetch)>& take);

  IMAPTransport transport_;
  IMAPResponseReader reader_{transport_};
  IMAPAccessMode accessMode_;
  std::set<std::string> capabilities_;
  std::string greeting_;
  std::optional<std::string> acceptedUsername_;
  std::optional<std::string> selected_;
  std::optional<IMAPMailboxStatus> selectedStatus_;
  std::int64_t tagCounter_ = 0;
  bool utf8Names_ = false;  ///< the server has agreed to mailbox names in UTF-8
  std::map<std::string, std::string> wireNames_;  ///< of paths that encode to another name
  std::deque<Fetch> inFlight_;
};

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_IMAP_CLIENT_H_
