#include "imapkit/connection_report.h"

#include "imapkit/imap_client.h"
#include "imapkit/imap_error.h"

namespace ambervane {
namespace {

/// Runs `command`; false, with the server's words in `refusal`, where the server says no.
template <typename Command>
bool isAnswered(const Command& command, std::string& refusal) {
  try {
    command();
    return true;
  } catch (const IMAPError& error) {
    if (!error.is<IMAPError::CommandFailed>()) throw;
    refusal = error.what();
    return false;
  }
}

void count(IMAPClient& client, IMAPConnectionReport& report) {
  std::optional<std::string> firstRefusal;
  for (const IMAPFolder& folder : report.folders) {
    // EXAMINE has no number of unread messages, and STATUS does not prove that a mailbox opens. It
    // comes first because it should not be asked about the mailbox that is open.
    std::string refusal;
    const bool told = isAnswered(
        [&] { report.unseenCounts[folder.path] = client.status(folder.path).unseen; }, refusal);
    const bool opened = isAnswered(
        [&] { report.messageCounts[folder.path] = client.select(folder.path, true).messages; },
        refusal);
    if (!opened) {
      report.unseenCounts.erase(folder.path);
      if (!firstRefusal) firstRefusal = refusal;
      continue;
    }
    const std::int64_t messages = report.messageCounts[folder.path];
    const std::int64_t unseen = told ? report.unseenCounts[folder.path] : 0;
    if (folder.isInbox()) {
      report.inboxMessages = messages;
      report.inboxUnseen = unseen;
    }
    if (folder.specialUse() == "all") continue;
    report.totalMessages += messages;
    report.totalUnseen += unseen;
  }
  if (report.messageCounts.empty()) report.refusal = firstRefusal;
}

void addWarnings(const IMAPServer& server, IMAPConnectionReport& report) {
  if (!server.useTLS) {
    report.warnings.push_back(
        {"This connection is not encrypted. Use port 993 with TLS unless the "
         "server is on this machine.",
         {}});
  }
  if (!report.capabilities.contains("IMAP4REV1")) {
    report.warnings.push_back(
        {"The server did not advertise IMAP4rev1; some features may not work.", {}});
  }
  if (report.folders.empty()) {
    report.warnings.push_back({"The account has no selectable mailboxes.", {}});
  }
  if (server.allowUntrustedCertificate) {
    report.warnings.push_back({"Certificate validation is switched off for this account.", {}});
  }
}

IMAPDiagnostic diagnosticOf(const IMAPError& error, const IMAPServer& server, bool greeted) {
  if (const auto* diagnosed = std::get_if<IMAPError::Diagnosed>(&error.reason())) {
    return diagnosed->diagnostic;
  }
  IMAPDiagnostic result;
  result.summaryMessage = error.message();
  // A server that never greeted may be waiting for TLS, or speaking it.
  if (!greeted) result.hintMessages = IMAPDiagnostics::portHints(server);
  result.underlying = error.what();
  return result;
}

}  // namespace

IMAPConnectionReport probe(const IMAPServer& server, const IMAPCredentials& credentials) {
  IMAPConnectionReport report;
  report.host = server.host;
  report.port = server.port;
  report.usesTLS = server.useTLS;
  IMAPClient client(server, report.accessMode);
  try {
    client.connect();
    client.login(credentials);
    report.authenticated = true;
    report.folders = client.listFolders();
    count(client, report);
    report.succeeded = true;
  } catch (const IMAPError& error) {
    report.failure = error.what();
    report.diagnostic = diagnosticOf(error, server, !client.greeting().empty());
  }
  report.reachedServer = client.transport().reachedServer();
  report.completedTLS = client.transport().completedTLS();
  report.greeting = client.greeting();
  report.capabilities = client.capabilities();
  report.acceptedUsername = client.acceptedUsername();
  if (report.succeeded) addWarnings(server, report);
  client.logout();
  return report;
}

}  // namespace ambervane
