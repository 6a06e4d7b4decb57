#include "imapkit/imap_client.h"

#include <fmt/format.h>

#include <utility>

#include "base/text.h"
#include "imapkit/command_line.h"

namespace ambervane {
namespace {

/// Of the text in all responses to one command; bodies do not count. A server that goes beyond is
/// not going to end.
constexpr std::size_t kMaxAnswerText = 67108864;

}  // namespace

IMAPClient::IMAPClient(IMAPServer server, IMAPAccessMode accessMode, CancellationCheck shouldCancel)
    : transport_(std::move(server), std::move(shouldCancel)), accessMode_(accessMode) {}

IMAPClient::~IMAPClient() = default;

/// Runs a step after whose failure no one knows where in the conversation the two sides are: what
/// came next could be the middle of a message.
void IMAPClient::orClose(const std::function<void()>& step) {
  try {
    step();
  } catch (...) {
    transport_.close();
    inFlight_.clear();
    throw;
  }
}

void IMAPClient::connect() {
  orClose([&] {
    transport_.connect();
    const IMAPResponse response = reader_.read();
    greeting_ = response.rawText;
    const bool isUntagged = response.kind == IMAPResponse::Kind::untagged;
    if (isUntagged && response.hasAtom(0, "BYE")) {
      const std::size_t words = std::string_view("* BYE ").size();
      throw IMAPError(
          IMAPError::ConnectionFailed{greeting_.substr(std::min(words, greeting_.size()))});
    }
    if (!isUntagged || !(response.hasAtom(0, "OK") || response.hasAtom(0, "PREAUTH"))) {
      throw IMAPError(IMAPError::ProtocolViolation{greeting_});
    }
    setCapabilities(response.responseCodeValue("CAPABILITY").value_or(""));
    refuseUpgrade();
    if (!capabilities_.empty()) return;
    refreshCapabilities();
    refuseUpgrade();
  });
}

void IMAPClient::refuseUpgrade() const {
  if (server().useTLS || !hasCapability("STARTTLS")) return;
  throw IMAPError(IMAPError::TLSRequired{fmt::format(
      "{} offers STARTTLS on port {} but this client only does implicit TLS. Connect on port 993 "
      "with TLS enabled instead.",
      server().host, server().port)});
}

void IMAPClient::setCapabilities(std::string_view words) {
  capabilities_.clear();
  for (const std::string_view word : splitOmittingEmpty(words, " ")) {
    capabilities_.insert(asciiUppercase(word));
  }
}

void IMAPClient::refreshCapabilities() {
  std::set<std::string> found;
  execute("CAPABILITY", [&](const IMAPResponse& response) {
    if (!response.hasAtom(0, "CAPABILITY")) return;
    for (std::size_t i = 1; i < response.tokens.size(); ++i) {
      if (const auto name = response.tokens[i].stringValue()) found.insert(asciiUppercase(*name));
    }
  });
  capabilities_ = std::move(found);
}

void IMAPClient::logout() noexcept {
  try {
    // Answers to what was abandoned may be long, and no one wants them.
    if (inFlight_.empty()) execute("LOGOUT");
  } catch (...) {
    // The session ends either way.
  }
  transport_.close();
}

void IMAPClient::refuseForbidden(std::string_view command) const {
  const std::string verb = commandVerb(command);
  if (accessMode_ == IMAPAccessMode::readOnly && modifiesMailbox(verb)) {
    throw IMAPError(IMAPError::Unsupported{verb + " would modify the mailbox; this connection is " +
                                           accessModeText(accessMode_)});
  }
  if (!isOneLine(command)) {
    throw IMAPError(IMAPError::Unsupported{"a line end in the argument of " + verb});
  }
}

/// Sends a command and returns its tag. Nothing reaches the server but through here.
std::string IMAPClient::begin(std::string_view command) {
  refuseForbidden(command);
  std::string tag = fmt::format("M{:04}", ++tagCounter_);
  orClose([&] { transport_.sendLine(Secret::joined({tag, " ", command}).view()); });
  return tag;
}

/// Reads up to the response with that tag. Anything else goes to `onUntagged`, and a continuation
/// to `onContinuation`, without which it is answered with an empty line, as a SASL challenge after
/// a failure wants it.
IMAPResponse IMAPClient::finish(const std::string& tag, const OnResponse& onUntagged,
                                const OnResponse& onContinuation) {
  IMAPResponse response;
  orClose([&] {
    std::size_t text = 0;
    for (;;) {
      response = reader_.read();
      text += response.rawText.size();
      if (text > kMaxAnswerText) {
        throw IMAPError(IMAPError::ProtocolViolation{
            "the server announced more data in one response than a mail server sends"});
      }
      if (response.kind == IMAPResponse::Kind::tagged && response.tag == tag) return;
      if (response.kind != IMAPResponse::Kind::continuation) {
        if (onUntagged) onUntagged(response);
      } else if (onContinuation) {
        onContinuation(response);
      } else {
        transport_.sendLine("");
      }
    }
  });
  return response;
}

IMAPResponse IMAPClient::execute(std::string_view command, const OnResponse& onUntagged,
                                 const OnResponse& onContinuation) {
  dropAbandoned();
  IMAPResponse answer = finish(begin(command), onUntagged, onContinuation);
  requireSuccess(answer, command);
  return answer;
}

void IMAPClient::requireSuccess(const IMAPResponse& answer, std::string_view command) {
  if (answer.hasAtom(0, "OK")) return;
  if (answer.hasAtom(0, "NO") || answer.hasAtom(0, "BAD")) {
    throw IMAPError(IMAPError::CommandFailed{std::string(command.substr(0, command.find(' '))),
                                             answer.rawText});
  }
  transport_.close();
  throw IMAPError(IMAPError::ProtocolViolation{answer.rawText});
}

}  // namespace ambervane
