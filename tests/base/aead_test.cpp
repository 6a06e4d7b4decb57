#include "base/aead.h"
#include "tests/support/test_bytes.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace ambervane {
namespace {

const Bytes kKey(32, 'k');

TEST(AesGcm, publishedVectors) {
  // The test cases for AES-256 submitted to NIST with the mode, in combined form.
  static constexpr struct {
    const char* name;
    const char* key;
    const char* aad;
    const char* combined;
    const char* plain;
  } kCases[] = {
      {"nothing", "0000000000000000000000000000000000000000000000000000000000000000", "",
       "000000000000000000000000530f8afbc74536b9a963b4f1c4cb738b", ""},
      {"oneBlock", "0000000000000000000000000000000000000000000000000000000000000000", "",
       "000000000000000000000000cea7403d4d606b6e074ec5d3baf39d18d0d1c8a799996bf0265b98b5d48ab919",
       "00000000000000000000000000000000"},
      {"withAssociatedData", "feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308",
       "feedfacedeadbeeffeedfacedeadbeefabaddad2",
       "cafebabefacedbaddecaf888522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8c"
       "b08e48590dbb3da7b08b1056828838c5f61e6393ba7a0abcc9f66276fc6ece0f4e1768cddf8853bb2d551b",
       "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e2449"
       "a6b525b16aedf5aa0de657ba637b39"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(aesGcmOpen(unhex(c.combined), unhex(c.key), unhex(c.aad)), unhex(c.plain));
  }
}

TEST(AesGcm, roundTrips) {
  for (const std::size_t size : {0U, 1U, 15U, 16U, 17U, 32U, 70000U}) {
    SCOPED_TRACE(size);
    const Bytes plain(size, 'p');
    const Bytes combined = aesGcmSeal(plain, kKey, "owner");
    EXPECT_EQ(combined.size(), 12 + size + 16);
    EXPECT_EQ(aesGcmOpen(combined, kKey, "owner"), plain);
    EXPECT_NE(aesGcmSeal(plain, kKey, "owner"), combined) << "the nonce is fresh";
  }
}

TEST(AesGcm, refusesWhatIsNotWhatWasSealed) {
  const Bytes combined = aesGcmSeal("a key of some kind", kKey, "42");
  for (std::size_t at = 0; at < combined.size(); ++at) {
    SCOPED_TRACE(at);
    Bytes changed = combined;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    EXPECT_FALSE(aesGcmOpen(changed, kKey, "42"));
    EXPECT_FALSE(aesGcmOpen(BytesView(combined).substr(0, at), kKey, "42"));
  }
  EXPECT_FALSE(aesGcmOpen(combined + '\0', kKey, "42"));
  EXPECT_FALSE(aesGcmOpen(combined, Bytes(32, 'K'), "42"));
  EXPECT_FALSE(aesGcmOpen(combined, kKey, "43"));
  EXPECT_FALSE(aesGcmOpen(combined, kKey, ""));
  EXPECT_TRUE(aesGcmOpen(combined, kKey, "42")) << "a refusal must not spoil what follows";
}

TEST(AesGcm, takesOnlyWholeKeys) {
  const Bytes combined = aesGcmSeal("x", kKey, "");
  for (const std::size_t size : {0U, 16U, 31U, 33U}) {
    SCOPED_TRACE(size);
    const Bytes key(size, 'k');
    EXPECT_THROW(aesGcmSeal("x", key, ""), std::invalid_argument);
    EXPECT_THROW(aesGcmOpen(combined, key, ""), std::invalid_argument);
    EXPECT_FALSE(SymmetricKey::fromRaw(key));
  }
}

TEST(SymmetricKey, leavesNothingWhereItWas) {
  SymmetricKey key = *SymmetricKey::fromRaw(kKey);
  const SymmetricKey moved = std::move(key);
  EXPECT_EQ(moved.raw(), kKey);
  // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): this is the promise.
  EXPECT_EQ(key.raw(), Bytes(32, '\0'));
  EXPECT_NE(SymmetricKey::random().raw(), SymmetricKey::random().raw());
}

}  // namespace
}  // namespace ambervane
