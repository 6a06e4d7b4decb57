#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/command_line.h"
#include "tests/support/dovecot.h"
#include "tests/support/mail_builder.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class SyncCommand : public testing::Test {
 protected:
  void SetUp() override {
    EXPECT_EQ(runCommand({"create", archive(), "--name", "Büro"}).status, 0);
  }
  std::string archive() const { return (folder_ / "a.ambervane").native(); }
  CommandResult sync(std::vector<std::string> words, std::uint16_t port, bool terminal = false) {
    words.insert(words.begin(), {"sync", archive(), "--host", "127.0.0.1", "--user", "anna",
                                 "--password", "geheim", "--port", std::to_string(port)});
    words.push_back("--no-tls");
    return runCommand(words, terminal);
  }
  const ScratchFolder folder_;
};

TEST_F(SyncCommand, wrongCalls) {
  static const std::vector<std::pair<std::vector<std::string>, std::string>> kCases = {
      {{"sync"}, "missing archive path"},
      {{"sync", "a"}, "--host is required"},
      {{"sync", "a", "--scheduled"}, "ambervane sync --scheduled is not part of this version yet"},
      {{"sync", "a", "--since", "2024-02-30"}, "--since takes a day such as 2024-01-31"},
      {{"sync", "a", "--before"}, "--before takes a day such as 2024-01-31"},
      {{"sync", "a", "--folders", ","},
       "--folders takes the names of folders, with commas in between"},
  };
  for (const auto& [words, text] : kCases) {
    const CommandResult result = runCommand(words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "error: " + text + "\n");
  }
}

TEST_F(SyncCommand, collectsAndSaysWhatCameOfIt) {
  if (const auto reason = DovecotServer::unavailable()) GTEST_SKIP() << *reason;
  DovecotServer server({.tls = false});
  const std::string first = server.deliver("INBOX", plainMail(1));
  server.deliver("Ablage", plainMail(2));
  server.deliver("Ablage/Alt", plainMail(3));

  const CommandResult one = sync({"--folders", "Ablage"}, server.plainPort());
  EXPECT_EQ(one.status, 0) << one.err;
  EXPECT_THAT(one.out, HasSubstr("Folders    : 1\nStored     : 1\nDuplicates : 0\n"));

  const CommandResult rest = sync({"--exclude", "Spam,Papierkorb"}, server.plainPort(), true);
  EXPECT_EQ(rest.status, 0) << rest.err;
  EXPECT_THAT(rest.out, MatchesRegex("Source: anna at 127.0.0.1:[0-9]+ \\(no TLS\\)\n"
                                     "Folders    : 3\nStored     : 2\nDuplicates : 0\nFailed     : "
                                     "0\nDeparted   : 0\nReturned   : 0\nInput      : "
                                     "[^\n]+\nStored size: [^\n]+\nSpeed      : [^\n]+\n"));
  EXPECT_THAT(rest.err, HasSubstr("\r  folder "));
  EXPECT_THAT(rest.err, Not(HasSubstr("Note: ")));

  EXPECT_THAT(sync({"--folders", "Nirgends"}, server.plainPort()).err,
              HasSubstr("Note: no folder on the server is among those to be collected\n"));
  // The only message of a folder gone may be a server's fault: nothing departs.
  server.remove("INBOX", first);
  const CommandResult emptied = sync({}, server.plainPort());
  EXPECT_EQ(emptied.status, 0);
  EXPECT_EQ(emptied.err, "Note: INBOX: server listed no messages, leaving the mailbox as it is\n");
  EXPECT_THAT(emptied.out, HasSubstr("Departed   : 0\n"));
}

}  // namespace
}  // namespace ambervane
