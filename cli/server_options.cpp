#include "cli/server_options.h"

#include <cstring>
#include <limits>

#include "base/text.h"
#include "cli/console.h"
#include "platform/password_prompt.h"

namespace ambervane {
namespace {

constexpr std::uint16_t kTlsPort = 993;
constexpr std::uint16_t kPlainPort = 143;
constexpr double kTimeoutSeconds = 60;

bool isSecretOption(std::string_view name) {
  return name.ends_with("password") || name.ends_with("oauth-token");
}

std::string required(const Arguments& arguments, const std::string& name) {
  const std::string value = arguments.option(name).value_or("");
  if (value.empty()) throw CLIError::usage("--" + name + " is required");
  return value;
}

std::uint16_t port(const Arguments& arguments, const std::string& name, bool useTLS) {
  if (!arguments.has(name)) return useTLS ? kTlsPort : kPlainPort;
  const auto number = parseInteger(arguments.option(name).value_or(""));
  if (!number || *number < 1 || *number > std::numeric_limits<std::uint16_t>::max()) {
    throw CLIError::usage("--" + name + " takes a number from 1 to 65535");
  }
  return static_cast<std::uint16_t>(*number);
}

Secret secretOption(const Arguments& arguments, const std::string& name) {
  const auto found = arguments.options.find(name);
  return found == arguments.options.end() ? Secret() : Secret::joined({found->second});
}

Secret askedPassword(const std::string& option, const std::string& user, const std::string& host) {
  PasswordAnswer answer =
      askPassword("Password for " + printable(user) + " at " + printable(host) + ": ");
  switch (answer.kind) {
    case PasswordAnswer::Kind::noTerminal:
      throw CLIError::usage("--" + option +
                            " is required, since there is no terminal to ask for it at");
    case PasswordAnswer::Kind::cancelled:
    case PasswordAnswer::Kind::given:
      break;
  }
  if (answer.password.empty()) throw CLIError::usage("no password was given");
  return std::move(answer.password);
}

}  // namespace

ServerLogin serverFrom(const Arguments& arguments, const std::string& prefix) {
  ServerLogin login;
  IMAPServer& server = login.server;
  server.host = required(arguments, prefix + "host");
  login.credentials.username = required(arguments, prefix + "user");
  server.useTLS = !arguments.has(prefix + "no-tls");
  server.port = port(arguments, prefix + "port", server.useTLS);
  server.allowUntrustedCertificate = arguments.has(prefix + "allow-untrusted-certificate");
  server.timeout = kTimeoutSeconds;

  if (Secret token = secretOption(arguments, prefix + "oauth-token"); !token.empty()) {
    login.credentials.method = IMAPCredentials::XOAuth2{std::move(token)};
    return login;
  }
  const std::string option = prefix + "password";
  Secret password = secretOption(arguments, option);
  if (password.empty()) password = askedPassword(option, login.credentials.username, server.host);
  login.credentials.method = IMAPCredentials::Login{std::move(password)};
  return login;
}

void eraseSecrets(std::span<char* const> words) noexcept {
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string_view word = words[i];
    if (!word.starts_with("--")) continue;
    const std::size_t equals = word.find('=');
    if (!isSecretOption(word.substr(2, equals == word.npos ? word.npos : equals - 2))) continue;
    if (equals != word.npos) {
      eraseBytes(words[i] + equals + 1, word.size() - equals - 1);
    } else if (i + 1 < words.size() && !std::string_view(words[i + 1]).starts_with("--")) {
      ++i;
      eraseBytes(words[i], std::strlen(words[i]));
    }
  }
}

void eraseSecrets(Arguments& arguments) noexcept {
  for (auto& [name, value] : arguments.options) {
    if (isSecretOption(name)) eraseBytes(value.data(), value.size());
  }
  for (auto& [name, values] : arguments.multiOptions) {
    if (!isSecretOption(name)) continue;
    for (std::string& value : values) eraseBytes(value.data(), value.size());
  }
}

}  // namespace ambervane
