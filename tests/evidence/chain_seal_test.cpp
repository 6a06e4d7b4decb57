#include "evidence/chain_seal.h"

#include <gtest/gtest.h>

namespace ambervane {
namespace {

// Made outside this program. Should this fail, seals written before can no longer be read.
constexpr const char* kSealFile = R"({
  "algorithm": "Ed25519",
  "chainHead": "decfbfdaaca37ea7f2fdf1b03464e3431f4ec06ff744f8371884e7c7d472485f",
  "createdAt": "2026-03-01T10:15:30Z",
  "entryCount": 7,
  "messageCount": 5,
  "publicKey": "11qYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo=",
  "sealNumber": 1,
  "signature": "c2ln"
}
)";

ChainSeal seal() {
  ChainSeal made;
  made.sealNumber = 1;
  made.createdAt = {1772360130};
  made.chainHead = "decfbfdaaca37ea7f2fdf1b03464e3431f4ec06ff744f8371884e7c7d472485f";
  made.entryCount = 7;
  made.messageCount = 5;
  made.publicKey = "11qYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo=";
  made.signature = "c2ln";
  return made;
}

TEST(ChainSeal, literalBytes) {
  EXPECT_EQ(encodeChainSeal(seal()), kSealFile);
  EXPECT_EQ(decodeChainSeal(kSealFile), seal());
  EXPECT_EQ(seal().signedPayload(),
            "seal=1\nts=1772360130\n"
            "head=decfbfdaaca37ea7f2fdf1b03464e3431f4ec06ff744f8371884e7c7d472485f\n"
            "entries=7\nmessages=5\nalg=Ed25519");
}

TEST(ChainSeal, timestampFieldsStandOutsideTheSignature) {
  ChainSeal stamped = seal();
  stamped.timestampToken = "MIIB";
  stamped.timestampAuthority = "tsa.example";
  stamped.timestampedAt = Date{1772360131};
  stamped.timestampFailure = "a: no answer";
  stamped.publicKey = "other";
  stamped.signature = "other";
  EXPECT_EQ(stamped.signedPayload(), seal().signedPayload());
  EXPECT_EQ(decodeChainSeal(encodeChainSeal(stamped)), stamped);
}

TEST(DecodeChainSeal, damagedFiles) {
  const struct {
    const char* name;
    const char* from;
    const char* to;
    bool accepted;
  } kCases[] = {
      {"nullTimestamp", "\"sealNumber\"", "\"timestampToken\": null, \"sealNumber\"", true},
      {"unknownKey", "\"sealNumber\"", "\"witness\": {\"a\": []}, \"sealNumber\"", true},
      {"fractionOfTime", "10:15:30Z", "10:15:30.000Z", true},
      {"numberFraction", "\"sealNumber\": 1", "\"sealNumber\": 1.5", false},
      {"numberTooLarge", "\"entryCount\": 7", "\"entryCount\": 18446744073709551615", false},
      {"countText", "\"messageCount\": 5", "\"messageCount\": \"5\"", false},
      {"headMissing", "chainHead", "chainhead", false},
      {"noDate", "2026-03-01T10:15:30Z", "yesterday", false},
      {"impossibleDate", "2026-03-01", "2026-02-30", false},
      {"tokenNumber", "\"sealNumber\"", "\"timestampToken\": 5, \"sealNumber\"", false},
      {"stampedNever", "\"sealNumber\"", "\"timestampedAt\": \"never\", \"sealNumber\"", false},
      {"array", "{\n", "[{\n", false},
      {"cut", "c2ln\"\n}\n", "c2l", false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    std::string text = kSealFile;
    ASSERT_NE(text.find(c.from), std::string::npos);
    text.replace(text.find(c.from), std::string_view(c.from).size(), c.to);
    EXPECT_EQ(decodeChainSeal(text).has_value(), c.accepted);
  }
  EXPECT_FALSE(decodeChainSeal(""));
  EXPECT_FALSE(decodeChainSeal("[1]"));
}

}  // namespace
}  // namespace ambervane
