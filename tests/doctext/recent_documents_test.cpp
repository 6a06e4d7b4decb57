#include "doctext/recent_documents.h"

#include <gtest/gtest.h>

namespace ambervane {
namespace {

DocumentText textOf(std::size_t bytes) {
  return {DocumentReading::complete, std::string(bytes, 'x')};
}

TEST(RecentDocuments, theOldestMakesRoom) {
  RecentDocuments recent(3, 10);
  recent.keep("a", textOf(1));
  recent.keep("b", textOf(2));
  recent.keep("c", textOf(3));
  recent.keep("a", textOf(9));  // known already
  EXPECT_EQ(recent.find("a")->text.size(), 1U);
  recent.keep("d", textOf(4));  // one too many
  EXPECT_FALSE(recent.find("a"));
  EXPECT_TRUE(recent.find("b") && recent.find("c") && recent.find("d"));
  recent.keep("e", textOf(6));  // the texts of c and d with it are too much
  EXPECT_FALSE(recent.find("b") || recent.find("c"));
  EXPECT_TRUE(recent.find("d") && recent.find("e"));
  recent.keep("f", textOf(11));  // never fits
  EXPECT_FALSE(recent.find("f"));
  EXPECT_TRUE(recent.find("e"));
}

}  // namespace
}  // namespace ambervane
