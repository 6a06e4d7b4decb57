#ifndef AMBERVANE_CLI_SERVER_OPTIONS_H_
#define AMBERVANE_CLI_SERVER_OPTIONS_H_

#include <span>
#include <string>
#include <string_view>

#include "cli/arguments.h"
#include "imapkit/imap_credentials.h"
#include "imapkit/imap_server.h"

namespace ambervane {

/// A server that the command line names, and who signs in there.
struct ServerLogin {
  IMAPServer server;
  IMAPCredentials credentials;
};

/// Reads --host, --user, --password or --oauth-token, --port, --no-tls and
/// --allow-untrusted-certificate, each with `prefix` in front of its name ("from-"). A password
/// that is not there is asked for at the terminal. Throws CLIError.
ServerLogin serverFrom(const Arguments& arguments, const std::string& prefix = "");

/// Overwrites the values of options that are secrets among the words of a command line, so that a
/// list of processes no longer shows them.
void eraseSecrets(std::span<char* const> words) noexcept;
void eraseSecrets(Arguments& arguments) noexcept;

}  // namespace ambervane

#endif  // AMBERVANE_CLI_SERVER_OPTIONS_H_
