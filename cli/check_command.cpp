#include "base/text.h"
#include "cli/commands.h"
#include "cli/server_options.h"
#include "imapkit/connection_report.h"

namespace ambervane {
namespace {

std::string tlsState(const IMAPConnectionReport& report) {
  if (!report.usesTLS) return "no TLS requested";
  return report.completedTLS ? "TLS established" : "TLS not established";
}

/// A text that may quote the server: its line ends are kept, nothing else can steer the terminal.
std::string shown(const LocalizedMessage& message) {
  const std::string text = message.text();
  std::vector<std::string> lines;
  for (const std::string_view line : split(text, '\n')) lines.push_back(printable(line));
  return join(lines, "\n");
}

void printSuccess(const IMAPConnectionReport& report, std::ostream& out) {
  out << "OK  signed in to " << printable(report.host) << ":" << report.port << " ("
      << accessModeText(report.accessMode)
      << ") — EXAMINE and BODY.PEEK only, nothing is marked as read\n"
      << "Encryption : " << tlsState(report) << "\n"
      << "Messages   : about " << report.totalMessages << " messages, " << report.totalUnseen
      << " unread\n"
      << "Capabilities: "
      << printable(join({report.capabilities.begin(), report.capabilities.end()}, " ")) << "\n";
  for (const LocalizedMessage& warning : report.warnings) out << shown(warning) << "\n";
  out << "Access: "
      << (report.refusal ? "refused — " + printable(*report.refusal) : std::string("readable"))
      << "\n";
}

void printFailure(const IMAPConnectionReport& report, const IMAPDiagnostic& diagnostic,
                  std::ostream& out) {
  out << "FAIL " << shown(diagnostic.summaryMessage) << "\n"
      << "Got as far as : "
      << (report.reachedServer ? "reached the server" : "could not reach the server") << " · "
      << tlsState(report) << " · " << (report.authenticated ? "signed in" : "not signed in")
      << "\n";
  if (diagnostic.detailMessage) {
    out << "Detail       : " << shown(*diagnostic.detailMessage) << "\n";
  }
  for (const LocalizedMessage& hint : diagnostic.hintMessages) out << "  → " << shown(hint) << "\n";
  if (!diagnostic.underlying.empty()) {
    out << "Raw error    : " << printable(diagnostic.underlying) << "\n";
  }
}

}  // namespace

int check(const Arguments& arguments, Console& console) {
  const ServerLogin login = serverFrom(arguments);
  const IMAPConnectionReport report = probe(login.server, login.credentials);
  if (report.diagnostic) {
    printFailure(report, *report.diagnostic, console.out);
    return kExitFailure;
  }
  printSuccess(report, console.out);
  return kExitSuccess;
}

}  // namespace ambervane
