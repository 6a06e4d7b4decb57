#ifndef AMBERVANE_TESTS_SUPPORT_SCRIPTED_IMAP_SERVER_H_
#define AMBERVANE_TESTS_SUPPORT_SCRIPTED_IMAP_SERVER_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "base/bytes.h"
#include "base/file.h"
#include "imapkit/imap_error.h"
#include "imapkit/imap_server.h"
#include "tests/support/test_certificate.h"

namespace ambervane {

/// What the IMAPError that `step` throws says; empty when it throws none.
template <typename Step>
std::string failure(const Step& step) {
  try {
    step();
    return "";
  } catch (const IMAPError& error) {
    return error.what();
  }
}

/// What a scripted server says. Texts are sent as they stand, but for these marks:
/// "$T" is the tag of the last command, "$C" ends the connection, "$R" resets it, "$H" is silence
/// until the client goes away.
struct IMAPScript {
  std::string greeting = "* OK [CAPABILITY IMAP4rev1] ready\r\n";
  /// What answers a line that begins so, the tag left out. Of several that fit the first is taken;
  /// where more than one has the same beginning each is used once and the last from then on.
  /// A reply to a command that ends in a literal is sent once the literal has come, after a "+" of
  /// the server's own; one that begins with "$!" is sent in place of the "+".
  /// Any other line is answered with "$T OK done".
  std::vector<std::pair<std::string, std::string>> replies = {};
  std::size_t pieceBytes = 65536;  ///< what is sent at a time
};

/// A server on 127.0.0.1 that does what no real one would: one connection after the other, on a
/// thread of its own, each wait bounded.
class ScriptedIMAPServer {
 public:
  explicit ScriptedIMAPServer(IMAPScript script) : ScriptedIMAPServer(std::move(script), nullptr) {}
  /// With TLS. The certificate is read at once.
  ScriptedIMAPServer(IMAPScript script, const TestCertificate& certificate)
      : ScriptedIMAPServer(std::move(script), &certificate) {}
  ~ScriptedIMAPServer();
  ScriptedIMAPServer(const ScriptedIMAPServer&) = delete;
  ScriptedIMAPServer& operator=(const ScriptedIMAPServer&) = delete;

  /// How to connect to it.
  IMAPServer address(double timeout = 5) const;
  /// All lines received so far, tags included, literals as lines of their own.
  std::vector<std::string> received() const;

 private:
  class Connection;

  ScriptedIMAPServer(IMAPScript script, const TestCertificate* certificate);
  void run();
  void converse(Connection& connection);
  std::string replyTo(std::string_view line);
  void note(std::string line);

  IMAPScript script_;
  FileHandle listener_;
  std::uint16_t port_ = 0;
  std::shared_ptr<void> tls_;  ///< an SSL_CTX, where there is TLS
  mutable std::mutex lock_;
  std::vector<std::string> received_;
  std::atomic<bool> isEnding_ = false;
  std::thread thread_;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_SCRIPTED_IMAP_SERVER_H_
