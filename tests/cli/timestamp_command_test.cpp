#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/digest.h"
#include "cli/commands.h"
#include "tests/support/command_line.h"
#include "tests/support/http_server.h"
#include "tests/support/openssl_authority.h"

namespace ambervane {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

/// What a command printed: its results when it succeeded, else its one line of failure.
std::string wordsOf(const std::vector<std::string>& words) {
  const CommandResult result = runCommand(words);
  return result.status == 0 ? result.out : result.err;
}

/// An authority that openssl plays behind a loopback server.
class Timestamps : public testing::Test {
 protected:
  void SetUp() override {
    if (!openssl_.works()) GTEST_SKIP() << "no openssl program";
  }
  Bytes answer(BytesView request) const {
    Bytes reply = openssl_.answer(request);
    const std::size_t time = reply.find("\x18\x0f\x32\x30");
    if (hidesTime_ && time != Bytes::npos) reply[time + 16] = '?';
    return reply;
  }
  std::string at(const std::string& name) const { return (folder_ / name).native(); }

  const ScratchFolder folder_;
  const OpensslAuthority openssl_;
  std::atomic<bool> hidesTime_{false};
  const HttpServer server_{
      [this](const HttpServer::Connection& c) { c.reply("200 OK", answer(c.body)); }};
};

TEST_F(Timestamps, theCommandTriesAnAuthority) {
  const auto runWith = [this](std::vector<std::string> words) {
    words.insert(words.begin(), {"timestamp", "--url", server_.url()});
    return wordsOf(words);
  };
  const std::string request = at("my request");
  const std::string head =
      "Digest    : 7cd14c0bd9d570ad8704533e94759177cad879f1ee9302fdd2125cbcf1bd8b73\n"
      "Authority : " +
      server_.url() + "\n";
  const std::string stamped =
      head +
      "Stated at : 20..-..-..T..:..:..Z\nToken     : [0-9]+ base64 characters\n"
      "The authority stamped the digest that was sent.\n";
  EXPECT_THAT(runWith({}), MatchesRegex(stamped));
  EXPECT_THAT(runWith({"--write-request", request}),
              MatchesRegex(head + "Request   : [67][0-9] bytes written to " + request +
                           "\n            curl -s -H 'Content-Type: application/timestamp-query' "
                           "\\\\\n                 --data-binary @'" +
                           request + "' " + server_.url() + " -o reply.tsr\n"));
  writeFileAtomically(folder_ / "reply", answer(readFile(request)));
  EXPECT_THAT(runWith({"--parse-reply", at("reply")}), MatchesRegex(stamped));
  EXPECT_THAT(runWith({"--parse-reply", at("reply"), "--data", "another text"}),
              HasSubstr("error: The authority timestamped a different digest"));
}

TEST_F(Timestamps, sealsCarryTheTokenOfTheirArchivesAuthority) {
  wordsOf({"create", at("a")});
  const auto seal = [&](const std::string& setting) {
    MailArchive(at("a"), OpenMode::readWrite).catalog().setMeta("timestamp_authority", setting);
    return wordsOf({"seal", at("a")});
  };
  const std::string nobody = "http://127.0.0.1:1/";
  EXPECT_THAT(seal(server_.url() + ", " + nobody),
              MatchesRegex("Asking " + server_.url() +
                           " for a timestamp…\nSeal 2 (.|\n)*\n  timestamp  20.*Z by 127.0.0.1\n"
                           "             this time comes from the authority, not from this "
                           "machine's clock\n"));
  hidesTime_ = true;
  EXPECT_THAT(seal(nobody + "," + server_.url()),
              HasSubstr("\n  timestamp  not stated by 127.0.0.1\n"));
  EXPECT_THAT(seal(nobody), HasSubstr("\n  timestamp  none — 127.0.0.1: Could not reach the "));

  MailArchive archive(at("a"), OpenMode::readOnly);
  const auto seals = archive.sealer().allSeals();
  ASSERT_EQ(seals.size(), 4U);
  for (const ChainSeal& written : seals) EXPECT_TRUE(Sealer::verify(written));
  EXPECT_TRUE(openssl_.verifies(base64DecodeStrict(*seals[1].timestampToken).value(),
                                sha256(base64DecodeStrict(seals[1].signature).value())));
  EXPECT_TRUE(seals[2].timestampToken && !seals[2].timestampedAt && !seals[2].timestampFailure);
}

}  // namespace
}  // namespace ambervane
