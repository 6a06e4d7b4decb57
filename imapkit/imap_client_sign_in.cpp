#include <fmt/format.h>

#include <utility>

#include "base/text.h"
#include "imapkit/command_line.h"
#include "imapkit/imap_client.h"
#include "imapkit/provider_profile.h"

namespace ambervane {
namespace {

using namespace std::literals;

/// As `quotedString`.
Secret quotedSecret(const Secret& secret) {
  Secret quoted;
  quoted.append("\"");
  for (const char& c : secret.view()) {
    if (c == '"' || c == '\\') quoted.append("\\");
    quoted.append({&c, 1});
  }
  quoted.append("\"");
  return quoted;
}

/// The error with the secret masked in what the server said: it may have repeated it.
IMAPError maskedError(const IMAPError& error, std::string_view secret) {
  IMAPError::Reason reason = error.reason();
  const auto mask = [&](std::string& text) { text = maskSecret(text, secret); };
  if (auto* failed = std::get_if<IMAPError::CommandFailed>(&reason)) {
    mask(failed->response);
  } else if (auto* violation = std::get_if<IMAPError::ProtocolViolation>(&reason)) {
    mask(violation->text);
  } else if (auto* diagnosed = std::get_if<IMAPError::Diagnosed>(&reason)) {
    mask(diagnosed->diagnostic.underlying);
    if (auto& detail = diagnosed->diagnostic.detailMessage) {
      mask(detail->format);
      for (std::string& argument : detail->arguments) mask(argument);
    }
  }
  return IMAPError(std::move(reason));
}

/// The address to try next when the server took the token and found no mailbox under the name, as
/// a Microsoft server does with an alias.
std::optional<std::string> retryAddress(const IMAPError& error,
                                        const IMAPCredentials& credentials) {
  const auto* diagnosed = std::get_if<IMAPError::Diagnosed>(&error.reason());
  if (diagnosed == nullptr ||
      asciiUppercase(diagnosed->diagnostic.underlying).find("AUTHENTICATED BUT NOT CONNECTED") ==
          std::string::npos) {
    return std::nullopt;
  }
  for (const std::string& name : credentials.alternateUsernames) {
    if (!name.empty() && lowercase(name) != lowercase(credentials.username)) return name;
  }
  return std::nullopt;
}

/// The server's words of a refused command. Anything else goes on as it is.
std::string refusalOf(const IMAPError& error) {
  const auto* failed = std::get_if<IMAPError::CommandFailed>(&error.reason());
  if (failed == nullptr) throw error;
  return failed->response;
}

[[noreturn]] void diagnose(const std::string& refusal, const IMAPServer& server,
                           const std::string& username, const std::optional<std::string>& earlier,
                           IMAPAccountKind kind) {
  throw IMAPError(IMAPError::Diagnosed{
      IMAPDiagnostics::describeAuthentication(refusal, server, username, earlier, kind)});
}

}  // namespace

void IMAPClient::login(const IMAPCredentials& credentials) {
  const Secret& secret = std::visit(
      [](const auto& method) -> const Secret& {
        if constexpr (requires { method.password; }) {
          return method.password;
        } else {
          return method.accessToken;
        }
      },
      credentials.method);
  withSecret(secret.view(), [&] {
    if (std::holds_alternative<IMAPCredentials::XOAuth2>(credentials.method)) {
      signInWithToken(credentials, secret);
    } else {
      signInWithPassword(credentials.username, secret);
    }
    refreshCapabilities();
    enableExtensions();
  });
}

/// Runs a step while a secret is on its way: it is kept out of traces and error texts.
void IMAPClient::withSecret(std::string_view secret, const std::function<void()>& step) {
  transport_.pushSecret(secret);
  try {
    step();
  } catch (const IMAPError& error) {
    transport_.popSecret();
    throw maskedError(error, secret);
  } catch (...) {
    transport_.popSecret();
    throw;
  }
  transport_.popSecret();
}

void IMAPClient::enableExtensions() {
  const auto ignoringRefusal = [&](const std::string& command, const OnResponse& onUntagged) {
    try {
      execute(command, onUntagged);
    } catch (const IMAPError& error) {
      refusalOf(error);
    }
  };
  std::string wanted;
  for (const char* name : {"CONDSTORE", "UTF8=ACCEPT"}) {
    if (hasCapability(name)) wanted += " "s + name;
  }
  if (hasCapability("ENABLE") && !wanted.empty()) {
    ignoringRefusal("ENABLE" + wanted, [this](const IMAPResponse& response) {
      if (!response.hasAtom(0, "ENABLED")) return;
      for (std::size_t i = 1; i < response.tokens.size(); ++i) {
        if (response.hasAtom(i, "UTF8=ACCEPT")) utf8Names_ = true;
      }
    });
  }
  if (hasCapability("ID")) {
    ignoringRefusal(R"(ID ("name" "Ambervane" "version" "1.0"))", nullptr);
  }
}

void IMAPClient::signInWithPassword(const std::string& username, const Secret& password) {
  try {
    passwordLogin(username, password);
  } catch (const IMAPError& error) {
    const MailProviderProfile* profile = MailProviderProfile::matching(username);
    const std::string localPart = username.substr(0, username.find('@'));
    if (!error.is<IMAPError::Diagnosed>() || profile == nullptr || !profile->usernameIsLocalPart ||
        localPart == username) {
      throw;
    }
    try {
      passwordLogin(localPart, password);
    } catch (const IMAPError& second) {
      // A server that hangs up at the second attempt leaves the first to be told.
      if (second.is<IMAPError::Diagnosed>() || second.is<IMAPError::Cancelled>()) throw;
      throw error;
    }
    acceptedUsername_ = localPart;
  }
}

void IMAPClient::passwordLogin(const std::string& username, const Secret& password) {
  std::optional<std::string> refusal;
  const bool fits = isOneLine(username) && isOneLine(password.view());
  if (!hasCapability("LOGINDISABLED") && fits) {
    const Secret quoted = quotedSecret(password);
    // Where nothing had to be escaped this is the password, which is masked only in what is made
    // of the refusal: its words could be among those that tell one refusal from another.
    const std::string_view escaped = quoted.view().substr(1, quoted.view().size() - 2);
    const bool differs = escaped != password.view();
    const Secret command = Secret::joined({"LOGIN ", quotedString(username), " ", quoted.view()});
    try {
      withSecret(differs ? escaped : ""sv, [&] { execute(command.view()); });
      return;
    } catch (const IMAPError& error) {
      refusal = refusalOf(error);
    }
  }
  try {
    authenticatePlain(username, password);
  } catch (const IMAPError& error) {
    const auto* failed = std::get_if<IMAPError::CommandFailed>(&error.reason());
    if (error.is<IMAPError::Cancelled>() || (failed == nullptr && !refusal)) throw;
    // A server that does not know the mechanism, or hangs up at it, says nothing about the
    // password; LOGIN did.
    const bool isTold = failed != nullptr && (!refusal || hasCapability("AUTH=PLAIN"));
    diagnose(isTold ? failed->response : *refusal, server(), username,
             isTold ? refusal : std::nullopt, IMAPAccountKind::unknown);
  }
}

void IMAPClient::authenticatePlain(const std::string& username, const Secret& password) {
  const Secret encoded = base64Secret(Secret::joined({"\0"sv, username, "\0"sv, password.view()}));
  bool isSent = false;
  withSecret(encoded.view(), [&] {
    execute("AUTHENTICATE PLAIN", nullptr, [&](const IMAPResponse& /*challenge*/) {
      transport_.sendLine(isSent ? ""sv : encoded.view());
      isSent = true;
    });
  });
}

void IMAPClient::signInWithToken(const IMAPCredentials& credentials, const Secret& token) {
  try {
    authenticateXOAuth2(credentials.username, token, credentials.accountKind);
  } catch (const IMAPError& error) {
    const auto other = retryAddress(error, credentials);
    if (!other) throw;
    authenticateXOAuth2(*other, token, credentials.accountKind);
    acceptedUsername_ = *other;
  }
}

void IMAPClient::authenticateXOAuth2(const std::string& username, const Secret& token,
                                     IMAPAccountKind kind) {
  const Secret encoded =
      base64Secret(Secret::joined({"user=", username, "\1auth=Bearer ", token.view(), "\1\1"}));
  const Secret command = Secret::joined({"AUTHENTICATE XOAUTH2 ", encoded.view()});
  std::optional<std::string> challenge;
  try {
    withSecret(encoded.view(), [&] {
      execute(command.view(), nullptr, [&](const IMAPResponse& response) {
        challenge = IMAPDiagnostics::decodeSASLChallenge(response.rawText);
        transport_.sendLine("");
      });
    });
  } catch (const IMAPError& error) {
    diagnose(refusalOf(error), server(), username, challenge, kind);
  }
}

}  // namespace ambervane
