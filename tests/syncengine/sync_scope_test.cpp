#include "syncengine/sync_scope.h"

#include <gtest/gtest.h>

#include "syncengine/sync_settings.h"

namespace ambervane {
namespace {

const std::vector<IMAPFolder> kListed = {
    {.path = "Inbox", .delimiter = "/"},
    {.path = "[Gmail]/All Mail", .delimiter = "/", .attributes = {"\\all"}},
    {.path = "Archive", .delimiter = "/"},
    {.path = "Archive/2024", .delimiter = "/"},
    {.path = "Müll", .delimiter = "/", .attributes = {"\\junk"}},
    {.path = "Parent", .delimiter = "/", .attributes = {"\\noselect"}},
};

std::vector<std::string> taken(const SyncScope& scope) {
  std::vector<std::string> paths;
  for (const IMAPFolder& folder : kListed) {
    if (scope.takes(folder)) paths.push_back(folder.path);
  }
  return paths;
}

TEST(SyncScope, folders) {
  using Texts = std::vector<std::string>;
  const struct {
    const char* name;
    Texts include, exclude;
    bool mayBePaths;
    Texts expected;
  } kCases[] = {
      {"all", {}, {}, true, {"Inbox", "Archive", "Archive/2024", "Müll"}},
      {"part", {"ARCH"}, {}, true, {"Archive", "Archive/2024"}},
      {"excluded", {}, {"2024", "mÜLL"}, true, {"Inbox", "Archive"}},
      {"excludedFromIncluded", {"archive"}, {"2024"}, false, {"Archive"}},
      {"pathsAreExact", {"Archive"}, {}, true, {"Archive"}},
      {"pathsSetTheRestAside", {"Archive/2024"}, {"archive"}, true, {"Archive/2024"}},
      {"partsWhereNobodyTyped", {"Archive"}, {}, false, {"Archive", "Archive/2024"}},
      {"onePartMakesThemAllParts", {"Archive", "2024"}, {}, true, {"Archive", "Archive/2024"}},
      {"inboxInAnyCase", {"INBOX"}, {}, true, {"Inbox"}},
      {"decomposed", {"Mu\u0308ll"}, {}, true, {"Müll"}},
      {"namedVirtualFolder", {"[Gmail]/All Mail"}, {}, true, {"[Gmail]/All Mail"}},
      {"virtualFolderByAPart", {"gmail"}, {}, true, {}},
      {"notSelectable", {"Parent"}, {}, true, {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    SyncScope scope;
    scope.includeFolders = c.include;
    scope.excludeFolders = c.exclude;
    scope.includesMayBePaths = c.mayBePaths;
    EXPECT_EQ(taken(scope.resolved(kListed)), c.expected);
  }
  SyncScope scope;
  scope.exactFolders = {"inbox", "Gone"};
  EXPECT_EQ(scope.notListed(kListed), Texts{"Gone"});
}

TEST(SyncSettings, comeBackAsTheyWereKept) {
  SyncScope scope;
  scope.includeFolders = {"A", "B/Müll \"x\""};
  scope.excludeFolders = {"C"};
  scope.since = Date{1704067200};
  SyncSettings settings({.host = "imap.example.ch", .port = 143, .useTLS = false}, "anna", scope);
  EXPECT_EQ(SyncSettings::decode(settings.encode()), settings);
  EXPECT_EQ(settings.scope().selection(), "since 2024-01-01");
  EXPECT_EQ(settings.server().host, "imap.example.ch");
  EXPECT_FALSE(settings.server().useTLS);
  settings.sinceEnabled = false;  // kept, and not in use
  EXPECT_TRUE(SyncSettings::decode(settings.encode())->scope().isWhole());
  for (const char* damaged : {"", "{", "[]", "{\"host\":\"h\"}", "{\"host\":7}"}) {
    EXPECT_FALSE(SyncSettings::decode(damaged)) << damaged;
  }
}

}  // namespace
}  // namespace ambervane
