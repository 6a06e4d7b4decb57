#ifndef AMBERVANE_TESTS_SUPPORT_DOVECOT_H_
#define AMBERVANE_TESTS_SUPPORT_DOVECOT_H_

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "base/bytes.h"
#include "base/date.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/test_certificate.h"

namespace ambervane {

/// A Dovecot of one test: own configuration, folder and ports on 127.0.0.1, mail in Maildirs below
/// a temporary folder, gone with the object and with the test program. Under root it runs as
/// "nobody". The machine's own Dovecot is not touched.
///
/// Folder names here are what IMAP shows ("Kunden/Müller" for the delimiter "/"), in UTF-8, without
/// dots unless the dot is the delimiter.
class DovecotServer {
 public:
  struct Options {
    /// True: a TLS port and a plain one that offers STARTTLS. False: a plain port without it.
    bool tls = true;
    std::string hostName = "localhost";  ///< in the certificate
    Validity validity = Validity::current;
    char delimiter = '/';
    std::map<std::string, std::string> users = {{"anna", "geheim"}};  ///< name, password
    std::map<std::string, std::string> specialUse = {};               ///< folder, such as "\\All"
  };

  /// Why no server can be started here; absent when one can.
  static std::optional<std::string> unavailable();

  /// Returns once the server greets, in 10 seconds at the most. Throws std::runtime_error.
  DovecotServer() : DovecotServer(Options()) {}
  explicit DovecotServer(Options options);
  ~DovecotServer() { stop(); }
  DovecotServer(const DovecotServer&) = delete;
  DovecotServer& operator=(const DovecotServer&) = delete;

  std::uint16_t tlsPort() const noexcept { return tlsPort_; }
  std::uint16_t plainPort() const noexcept { return plainPort_; }
  const std::filesystem::path& certificate() const noexcept { return certificate_.certificate; }
  /// What the server has written to its log so far.
  std::string log() const;
  /// Ends the server and all its connections at once.
  void stop();

  // What lies in the mailboxes. Changes are seen by the next command that opens the mailbox.

  /// Mailboxes are changed for this user from now on; the first of the options at the beginning.
  void setUser(const std::string& name) { user_ = name; }
  void createFolder(const std::string& folder);
  void removeFolder(const std::string& folder);
  /// Puts a message into a folder, which is made where it is missing. `flags` are Maildir's letters
  /// ("FS"), `internalDate` what the server reports as INTERNALDATE. Returns the message's name.
  std::string deliver(const std::string& folder, BytesView message, const std::string& flags = "",
                      std::optional<Date> internalDate = std::nullopt);
  /// Takes a delivered message away, as another client's EXPUNGE would.
  void remove(const std::string& folder, const std::string& message);
  /// Moves a delivered message to another folder, where it gets a new UID.
  void move(const std::string& message, const std::string& from, const std::string& to);
  /// The flags a message has now, as Maildir's letters.
  std::string flags(const std::string& folder, const std::string& message) const;
  /// Makes the server forget the UIDs of a folder: its UIDVALIDITY changes, and messages are
  /// numbered anew from 1.
  void changeUidValidity(const std::string& folder);

 private:
  void writeConfiguration() const;
  bool start();
  std::filesystem::path maildir(const std::string& folder) const;
  std::filesystem::path find(const std::string& folder, const std::string& message) const;

  Options options_;
  ScratchFolder folder_;
  TestCertificate certificate_;
  std::string user_;
  std::uint16_t tlsPort_ = 0;
  std::uint16_t plainPort_ = 0;
  pid_t process_ = -1;
  int delivered_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_DOVECOT_H_
