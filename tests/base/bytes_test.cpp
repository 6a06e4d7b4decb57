#include "base/bytes.h"

#include <gtest/gtest.h>

#include "base/digest.h"
#include "base/ed25519.h"

namespace ambervane {
namespace {

TEST(Bytes, hexDecode) {
  static constexpr struct {
    const char* name;
    const char* digits;
    std::optional<const char*> bytes;
  } kCases[] = {{"bothCases", "41aF", "\x41\xaf"},
                {"empty", "", ""},
                {"odd", "414", std::nullopt},
                {"stray", "4g", std::nullopt}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto bytes = hexDecode(c.digits);
    ASSERT_EQ(bytes.has_value(), c.bytes.has_value());
    if (bytes) {
      EXPECT_EQ(*bytes, *c.bytes);
    }
  }
}

TEST(Bytes, base64AcrossThePiecesOfTheEncoder) {
  // RFC 4648 section 10, and a length that needs several calls of the library's encoder.
  static constexpr struct {
    const char* plain;
    const char* text;
  } kVectors[] = {{"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}};
  for (const auto& v : kVectors) {
    EXPECT_EQ(base64Encode(v.plain), v.text);
    EXPECT_EQ(base64DecodeStrict(v.text), v.plain);
  }
  const Bytes large(7 * 1024 * 1024 + 1, 'x');
  EXPECT_EQ(base64DecodeStrict(base64Encode(large)), large);
  for (const char* wrong : {"Zg", "Zg=", "Zg==\n", "Z g==", "Zh==", "=Zg="}) {
    EXPECT_FALSE(base64DecodeStrict(wrong)) << wrong;
  }
}

TEST(Bytes, sliceIsClamped) {
  EXPECT_EQ(slice("abcdef", {2, 4}), "cd");
  EXPECT_EQ(slice("abcdef", {4, 99}), "ef");
  EXPECT_EQ(slice("abcdef", {9, 99}), "");
}

TEST(Digest, sha256InPieces) {
  // FIPS 180-4's own example.
  EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  Sha256 pieces;
  pieces.update("a");
  pieces.update("");
  pieces.update("bc");
  EXPECT_EQ(pieces.finish(), sha256("abc"));
}

TEST(Ed25519, vectorAndRefusals) {
  // RFC 8032 section 7.1, test 2.
  const auto key = Ed25519PrivateKey::fromRaw(
      *hexDecode("4ccd089b28ff96da9db6c346ec114e0f5b8a319f35aba624da8cf6ed4fb8a6fb"));
  ASSERT_TRUE(key);
  EXPECT_EQ(hexEncode(key->publicKey()),
            "3d4017c3e843895a92b70aa74d1b7ebc9c982ccf2ec4968cc0cd55f12af4660c");
  const Bytes signature = key->sign("\x72");
  EXPECT_EQ(hexEncode(signature),
            "92a009a9f0d4cab8720e820b5f642540a2b27b5416503f8fb3762223ebdb69da"
            "085ac1e43e15996e458f3613d0f11d8c387b2eaeb4302aeeb00d291612bb0c00");
  EXPECT_TRUE(ed25519Verify(key->publicKey(), "\x72", signature));
  EXPECT_FALSE(ed25519Verify(key->publicKey(), "\x73", signature));
  EXPECT_FALSE(ed25519Verify(key->publicKey(), "\x72", BytesView(signature).substr(1)));
  EXPECT_FALSE(ed25519Verify("short", "\x72", signature));
  EXPECT_FALSE(Ed25519PrivateKey::fromRaw("short"));
}

}  // namespace
}  // namespace ambervane
