#include "platform/code_signature.h"

#include <gtest/gtest.h>

namespace ambervane {
namespace {

TEST(CodeSignature, summaries) {
  const struct {
    const char* name;
    CodeSignature signature;
    const char* summary;
  } kCases[] = {
      {"doesNotVerify",
       {"Developer ID Application: Acme AG (A1B2C3)", "A1B2C3", "acme", false, false},
       "unsigned or the signature does not verify"},
      {"adHoc", {{}, {}, "acme", true, true}, "ad-hoc signature — no identity behind it"},
      {"publisher",
       {"Developer ID Application: Acme AG (A1B2C3)", "A1B2C3", "acme", false, true},
       "Acme AG (A1B2C3)"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.signature.summary(), c.summary);
  }
}

}  // namespace
}  // namespace ambervane
