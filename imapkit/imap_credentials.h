#ifndef AMBERVANE_IMAPKIT_IMAP_CREDENTIALS_H_
#define AMBERVANE_IMAPKIT_IMAP_CREDENTIALS_H_

#include <string>
#include <variant>
#include <vector>

#include "imapkit/diagnostics.h"
#include "platform/secret.h"

namespace ambervane {

/// Who signs in, and with what. Moves and does not copy, because it holds a secret.
struct IMAPCredentials {
  struct Login {
    Secret password;
  };
  /// As `Login`: the server's capabilities decide between LOGIN and AUTHENTICATE PLAIN.
  struct Plain {
    Secret password;
  };
  struct XOAuth2 {
    Secret accessToken;
  };
  using Method = std::variant<Login, Plain, XOAuth2>;

  std::string username;
  Method method;
  IMAPAccountKind accountKind = IMAPAccountKind::unknown;
  std::vector<std::string> alternateUsernames = {};  ///< tried when an alias opened no mailbox
};

}  // namespace ambervane

#endif  // AMBERVANE_IMAPKIT_IMAP_CREDENTIALS_H_
