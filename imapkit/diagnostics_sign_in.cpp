#include "base/bytes.h"
#include "base/text.h"
#include "imapkit/diagnostics.h"
#include "imapkit/imap_server.h"
#include "imapkit/provider_profile.h"

namespace ambervane {
namespace {

bool containsAny(std::string_view text, std::initializer_list<std::string_view> words) {
  for (const std::string_view word : words) {
    if (text.find(word) != std::string_view::npos) return true;
  }
  return false;
}

/// What an account without an open mailbox lacks. A kind that is not known gets the hints of both.
std::vector<LocalizedMessage> noMailboxHints(IMAPAccountKind kind) {
  std::vector<LocalizedMessage> hints;
  if (kind != IMAPAccountKind::organisation) {
    hints.push_back(
        {"On Outlook.com IMAP ships switched off: turn it on in the web mail under "
         "Settings, Mail, Forwarding and IMAP.",
         {}});
    hints.push_back(
        {"Signing in under an alias gives this too — use the account's primary "
         "address.",
         {}});
  }
  if (kind != IMAPAccountKind::personalMicrosoft) {
    hints.push_back(
        {"The account may have no Exchange Online mailbox: ask the administrator "
         "whether one is licensed.",
         {}});
    hints.push_back({"An alias gives this too: use the primary address of the account.", {}});
    hints.push_back(
        {"IMAP can be switched off for a single mailbox; an administrator turns it on "
         "with Set-CASMailbox -ImapEnabled $true.",
         {}});
    hints.push_back(
        {"A shared mailbox is not signed in to directly: sign in as a user who has "
         "access to it.",
         {}});
  }
  return hints;
}

void addHostHints(const IMAPServer& server, std::vector<LocalizedMessage>& hints) {
  const std::string host = asciiLowercase(server.host);
  if (containsAny(host, {"gmail"})) {
    hints.push_back(
        {"Gmail requires an app password (with 2-step verification on) or OAuth — your "
         "normal password will not work.",
         {}});
  }
  if (containsAny(host, {"me.com"})) {
    hints.push_back(
        {"iCloud requires an app-specific password generated at appleid.apple.com.", {}});
  }
  if (containsAny(host, {"outlook", "office365", "hotmail"})) {
    hints.push_back(
        {"Microsoft accounts usually need an app password, and many tenants disable "
         "basic authentication entirely.",
         {}});
  }
  if (containsAny(host, {"yahoo"})) {
    hints.push_back({"Yahoo requires an app password generated in account security settings.", {}});
  }
}

/// The summary that the server's words give, and what goes with it.
/// What the server's words, in lower case, say of a refusal that is more than the default.
void classify(std::string_view words, const IMAPServer& server, const std::string& username,
              IMAPDiagnostic& result) {
  if (containsAny(words, {"authenticationfailed", "authentication failed", "invalid credentials",
                          "login failed"})) {
    result.summaryMessage = {"Wrong username or password for %1$@ at %2$@.",
                             {username, server.host}};
  } else if (containsAny(words, {"application-specific", "app password"})) {
    result.summaryMessage = {
        "This provider wants an app-specific password rather than your account password.", {}};
  } else if (containsAny(words, {"logindisabled"})) {
    result.summaryMessage = {"%@ does not accept plain password sign-in on this connection.",
                             {server.host}};
    if (!server.useTLS) {
      result.hintMessages.push_back(
          {"The server disables password login on unencrypted "
           "connections. Use port 993 with TLS.",
           {}});
    }
  } else if (containsAny(words, {"webalert"})) {
    result.summaryMessage = {"This provider wants you to sign in with a web browser first.", {}};
    result.detailMessage = {"%@", {result.underlying}};
  }
}

}  // namespace

namespace IMAPDiagnostics {

IMAPDiagnostic describeAuthentication(std::string_view serverText, const IMAPServer& server,
                                      const std::string& username,
                                      const std::optional<std::string>& challenge,
                                      IMAPAccountKind accountKind) {
  IMAPDiagnostic result;
  result.underlying = std::string(serverText);
  const std::string words = asciiLowercase(serverText);
  if (const MailProviderProfile* profile = MailProviderProfile::matching(username)) {
    result.settingsURL = profile->credentialURL;
    result.helpURL = profile->helpURL;
  }
  if (containsAny(words, {"authenticated but not connected"})) {
    result.summaryMessage = {"%1$@ signed in at %2$@, but no mailbox opened.",
                             {username, server.host}};
    result.detailMessage = {"The sign-in itself worked, so this is not the password or the token.",
                            {}};
    result.hintMessages = noMailboxHints(accountKind);
    result.helpArticle = "outlook-no-mailbox";
    return result;
  }

  result.summaryMessage = {"%1$@ rejected the sign-in for %2$@.", {server.host, username}};
  if (challenge) {
    result.detailMessage = {"The server replied: %1$@\nAnd before that: %2$@",
                            {result.underlying, *challenge}};
  } else {
    result.detailMessage = {"The server replied: %@", {result.underlying}};
  }
  classify(words, server, username, result);
  addHostHints(server, result.hintMessages);
  result.hintMessages.push_back(
      {username.find('@') != std::string::npos
           ? "Some servers want only the part before the @ as the username."
           : "Some servers want the full address as the username, not just the local part.",
       {}});
  result.hintMessages.push_back({"Check for a leading or trailing space in the password.", {}});
  return result;
}

std::optional<std::string> decodeSASLChallenge(std::string_view line) {
  if (!line.starts_with("+ ")) return std::nullopt;
  const auto decoded = base64DecodeStrict(trim(line.substr(2)));
  if (!decoded || !decoded->starts_with("{")) return std::nullopt;
  return repairedUtf8(*decoded);
}

}  // namespace IMAPDiagnostics
}  // namespace ambervane
