#ifndef AMBERVANE_PLATFORM_PASSWORD_PROMPT_H_
#define AMBERVANE_PLATFORM_PASSWORD_PROMPT_H_

#include <string>

#include "platform/secret.h"

namespace ambervane {

/// What came of asking for a password.
struct PasswordAnswer {
  enum class Kind {
    given,       ///< a line, which may be empty
    noTerminal,  ///< nobody can be asked
    cancelled,   ///< the end of input, or a signal that did not end the process
  };
  Kind kind = Kind::noTerminal;
  Secret password = {};
};

/// Writes `prompt` to the process's terminal, wherever its input and output go, and reads a line
/// from it without echo. The terminal is as before whatever ends the wait: a signal that ends or
/// stops the process (Ctrl-C, Ctrl-Z) does so after that. One thread at a time.
PasswordAnswer askPassword(const std::string& prompt);

}  // namespace ambervane

#endif  // AMBERVANE_PLATFORM_PASSWORD_PROMPT_H_
