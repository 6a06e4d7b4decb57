#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

#include "imapkit/imap_client.h"
#include "tests/support/dovecot.h"
#include "tests/support/mail_builder.h"

namespace ambervane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(IMAPClientWithDovecot, doesAllItCan) {
  if (const auto reason = DovecotServer::unavailable()) GTEST_SKIP() << *reason;
  DovecotServer server(DovecotServer::Options{.specialUse = {{"Alle", "\\All"}}});
  const TrustedCertificate trusted(server.certificate());
  server.createFolder("Alle");
  const Bytes first = plainMail(1, "Lieferung", "Zeile\r\n.\r\n\r\nEnde ohne Zeilenende");
  const std::string delivered =
      server.deliver("Kunden/Müller & Söhne", first, "F", Date{1707127200});
  for (int i = 2; i <= 60; ++i) server.deliver("Kunden/Müller & Söhne", plainMail(i));

  const IMAPServer address{.host = "localhost", .port = server.tlsPort(), .timeout = 20};
  const IMAPCredentials credentials{.username = "anna",
                                    .method = IMAPCredentials::Login{Secret("geheim")}};
  IMAPClient client(address, IMAPAccessMode::readWrite);
  client.connect();
  client.login(credentials);
  client.createFolder("Neu & schön");
  std::map<std::string, std::optional<std::string>> folders;
  for (const IMAPFolder& folder : client.listFolders()) {
    EXPECT_EQ(folder.delimiter, "/");
    folders[folder.path] = folder.specialUse();
  }
  EXPECT_EQ(folders.at("Alle"), "all");
  EXPECT_EQ(folders.count("Neu & schön"), 1U);

  const IMAPMailboxStatus opened = client.select("Kunden/Müller & Söhne", true);
  EXPECT_EQ(opened.messages, 60);
  EXPECT_EQ(opened.uidNext, 61);
  EXPECT_TRUE(opened.highestModSeq);
  std::vector<std::int64_t> all(60);
  std::iota(all.begin(), all.end(), 1);
  EXPECT_EQ(client.searchUIDs(), all);
  EXPECT_THAT(client.searchUIDs(std::nullopt, Date{1707220000}), ElementsAre(1));
  EXPECT_THAT(client.searchUIDs(std::nullopt, std::nullopt, 100), ElementsAre(60));

  std::vector<IMAPMessage> messages;
  client.fetchMessages(all, 7, [&](IMAPMessage message) {
    messages.push_back(std::move(message));
    return true;
  });
  ASSERT_EQ(messages.size(), 60U);
  EXPECT_EQ(messages[0].raw, first);
  EXPECT_EQ(messages[0].internalDate, Date{1707127200});
  EXPECT_THAT(messages[0].flags, testing::Contains(MessageFlag::flagged));
  EXPECT_EQ(messages[59].raw, plainMail(60));
  EXPECT_EQ(server.flags("Kunden/Müller & Söhne", delivered), "F") << "read, not marked as read";
  EXPECT_EQ(client.fetchEnvelopes(all, 25).at(59).size,
            static_cast<std::int64_t>(plainMail(60).size()));
  EXPECT_EQ(client.fetchMessageIDs(all, 25).at(60), "m60@example.com");

  const IMAPAppendResult appended =
      client.append(first, "Neu & schön", {MessageFlag::seen}, Date{1707127200});
  EXPECT_EQ(appended.uid, 1);
  EXPECT_EQ(client.status("Neu & schön").messages, 1);
  EXPECT_EQ(client.select("Neu & schön", false).uidValidity, appended.uidValidity);
  client.fetchMessages(std::vector<std::int64_t>{1, 2}, 25, [&](const IMAPMessage& message) {
    EXPECT_EQ(message.raw, first);
    EXPECT_THAT(message.rawFlags, testing::Contains("\\Seen"));
    return true;
  });
  EXPECT_THAT(client.searchUIDs(Date{1707200000}), IsEmpty());
  client.logout();
}

}  // namespace
}  // namespace ambervane
