#include "store/catalog_sync_state.h"

#include <gtest/gtest.h>

#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

using UIDs = std::vector<std::int64_t>;

/// A mailbox with messages of the UIDs 10, 20 and 30 and one without.
class SyncState : public testing::Test {
 protected:
  SyncState() {
    int number = 0;
    for (const std::optional<std::int64_t> uid :
         {std::optional<std::int64_t>(10), std::optional<std::int64_t>(20),
          std::optional<std::int64_t>(30), std::optional<std::int64_t>()}) {
      const auto id = catalog_.reserveMessage("hash" + std::to_string(++number));
      catalog_.linkMessage(id, inbox_, uid, "", std::nullopt);
    }
  }
  std::int64_t rows(const std::string& condition) {
    return catalog_.database().count("SELECT count(*) FROM message_folder WHERE " + condition);
  }

  const ScratchFolder folder_;
  Catalog catalog_{folder_ / "catalog.sqlite", [] { return Date{1000}; }};
  CatalogSyncState states_{catalog_};
  const std::int64_t account_ = catalog_.upsertAccount("a", "imap", "h", "u", {});
  const std::int64_t inbox_ = catalog_.upsertFolder(account_, "INBOX");
};

TEST_F(SyncState, reconciliation) {
  const struct {
    const char* name;
    UIDs live;
    MembershipReconciliation expected;
    std::int64_t removed;
  } kCases[] = {
      {"nothingNew", {10, 20, 30, 40}, {0, 0, 3}, 0},
      {"oneLeaves", {10, 30}, {1, 0, 2}, 1},
      {"stillGone", {10, 30}, {0, 0, 2}, 1},
      {"oneComesBackAnotherLeaves", {20, 30}, {1, 1, 1}, 1},
      {"allBack", {10, 20, 30}, {0, 1, 2}, 0},
  };
  double at = 2000;
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto generation = catalog_.contentFingerprint();
    EXPECT_EQ(states_.reconcileMembership(inbox_, c.live, Date{++at}), c.expected);
    EXPECT_EQ(rows("removed_at IS NOT NULL"), c.removed);
    EXPECT_EQ(rows("last_seen_at = " + std::to_string(at)), 3 - c.removed);
    // The one without a UID counts as there and is never touched.
    EXPECT_EQ(states_.currentMembershipCount(inbox_), 4 - c.removed);
    EXPECT_EQ(catalog_.contentFingerprint() != generation,
              c.expected.departed + c.expected.returned > 0);
  }
}

TEST_F(SyncState, anotherNumberingForgetsUidsAndKeepsMessages) {
  states_.updateFolderSyncState(inbox_, {7, 31, 99}, Date{1});
  states_.setCoverage(inbox_, "since 2024-01-01");
  EXPECT_EQ(states_.highestUID(inbox_), 30);
  EXPECT_EQ(states_.withoutHeldUIDs(inbox_, {5, 10, 30, 31}), (UIDs{5, 31}));
  states_.restartNumbering(inbox_, 8, "");
  EXPECT_EQ(states_.folderSyncState(inbox_), (FolderSyncState{8, std::nullopt, std::nullopt}));
  EXPECT_EQ(states_.highestUID(inbox_), 0);
  EXPECT_EQ(states_.coverage(inbox_), "");
  EXPECT_EQ(rows("uid IS NULL AND removed_at IS NULL"), 4);

  states_.forgetNumbering(account_);
  EXPECT_EQ(states_.folderSyncState(inbox_), FolderSyncState());
}

TEST_F(SyncState, whatArrivesIsOwedNoLonger) {
  for (const std::int64_t uid : {1, 2, 3}) catalog_.recordMiss(inbox_, uid, 7);
  states_.clearPendingUIDs(inbox_, {9, 3, 1});
  EXPECT_EQ(catalog_.pendingFetches(inbox_, 7, 10), (UIDs{2}));
  // Under another UIDVALIDITY the same number is another message.
  catalog_.recordMiss(inbox_, 2, 7);
  catalog_.recordMiss(inbox_, 2, 8);
  EXPECT_EQ(catalog_.database().count("SELECT attempts FROM pending_fetch WHERE uid = 2"), 1);
  EXPECT_TRUE(catalog_.pendingFetches(inbox_, 7, 10).empty());
}

}  // namespace
}  // namespace ambervane
