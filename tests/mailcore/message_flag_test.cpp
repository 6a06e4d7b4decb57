#include "mailcore/message_flag.h"

#include <gtest/gtest.h>

namespace ambervane {
namespace {

TEST(MessageFlag, texts) {
  EXPECT_EQ(flagText({}), "");
  EXPECT_EQ(messageFlagFromImap("\\sEEN"), MessageFlag::seen);
  EXPECT_EQ(messageFlagFromImap("Seen"), std::nullopt);
  EXPECT_EQ(flagsFromText("\\Seen  $Junk \\draft"),
            (std::set<MessageFlag>{MessageFlag::seen, MessageFlag::draft}));
  const std::set<MessageFlag> all = {MessageFlag::seen,    MessageFlag::answered,
                                     MessageFlag::flagged, MessageFlag::deleted,
                                     MessageFlag::draft,   MessageFlag::recent};
  EXPECT_EQ(flagsFromText(flagText(all)), all);
  EXPECT_EQ(flagText(all), "\\Answered \\Deleted \\Draft \\Flagged \\Recent \\Seen");
}

}  // namespace
}  // namespace ambervane
