#include "evidence/sealer.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "base/bytes.h"
#include "base/file.h"
#include "platform/immutable_flag.h"
#include "tests/support/file_faults.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

// The first key of RFC 8032 section 7.1; the signature was made outside this program.
constexpr const char* kPrivateKey =
    "9d61b19deffd5a60ba844af492ec2cc44449c5697b326919703bac031cae7f60";
constexpr const char* kPublicKey = "11qYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo=";
constexpr const char* kFingerprint =
    "21fe31dfa154a261626bf854046fd2271b7bed4b6abe45aa58877ef47f9721b9";
constexpr const char* kSignature =
    "ls/ivRCjYc2+7/VIHDwX+4GES2bufqMc1HN0uPPwmV2w5szjbvnO2qf+iV6Fk0lhYmywIQLSLBEbLU/BgeqvDA==";
constexpr const char* kHead = "decfbfdaaca37ea7f2fdf1b03464e3431f4ec06ff744f8371884e7c7d472485f";

class SealerTest : public ::testing::Test {
 protected:
  Sealer make() const {
    return Sealer(key_, seals_, [] { return Date{1772360130.9}; });
  }
  void putKey() const {
    fs::create_directories(key_.parent_path());
    writeFileAtomically(key_, *hexDecode(kPrivateKey), 0600);
  }
  void putSealFile(const std::string& name) const {
    fs::create_directories(seals_);
    writeFileAtomically(seals_ / name, "no seal");
  }
  static fs::perms mode(const fs::path& path) { return fs::status(path).permissions(); }

  const ScratchFolder folder_;
  const fs::path key_ = folder_ / "keys/seal.key";
  const fs::path seals_ = folder_ / "chain/seals";
};

TEST_F(SealerTest, literalSeal) {
  putKey();
  Sealer sealer = make();
  EXPECT_EQ(sealer.publicKeyBase64(), kPublicKey);
  EXPECT_EQ(sealer.publicKeyFingerprint(), kFingerprint);
  const ChainSeal seal = sealer.seal(kHead, 7, 5);
  EXPECT_EQ(seal.createdAt, Date{1772360130});
  EXPECT_EQ(seal.signature, kSignature);
  const fs::path file = seals_ / "00000001.seal.json";
  EXPECT_EQ(readFile(file), encodeChainSeal(seal));
  EXPECT_EQ(isImmutable(file), setImmutable(file));  // wherever the system can
  EXPECT_EQ(sealer.latestSeal(), seal);
  EXPECT_TRUE(Sealer::verify(seal, kPublicKey));
}

TEST_F(SealerTest, newKeyIsForTheOwnerAlone) {
  Sealer sealer = make();
  EXPECT_FALSE(fs::exists(key_)) << "only asking for the key makes one";
  const std::string key = sealer.publicKeyBase64();
  EXPECT_EQ(fs::file_size(key_), 32u);
  EXPECT_EQ(mode(key_), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(mode(key_.parent_path()), fs::perms::owner_all);
  EXPECT_EQ(make().publicKeyBase64(), key);
}

TEST_F(SealerTest, lostOrDamagedKeyShowsInTheHistory) {
  std::vector<std::string> keys;
  for (const char* damage : {"", "thirty-one bytes do not make one"}) {
    Sealer sealer = make();
    sealer.seal(kHead, 1, 0);
    EXPECT_FALSE(sealer.keyWasRotated());
    keys.push_back(sealer.publicKeyBase64());
    writeFileAtomically(key_, std::string_view(damage).substr(0, 31));
  }
  fs::remove(key_);
  Sealer sealer = make();
  EXPECT_TRUE(sealer.keyWasRotated());
  EXPECT_EQ(sealer.signingKeyHistory(), keys);
  sealer.seal(kHead, 3, 0);
  sealer.seal(kHead, 4, 0);
  EXPECT_FALSE(sealer.keyWasRotated());
  keys.push_back(sealer.publicKeyBase64());
  EXPECT_EQ(sealer.signingKeyHistory(), keys);
  const auto seals = sealer.allSeals();
  ASSERT_EQ(seals.size(), 4u);
  EXPECT_EQ(seals[2].createdAt, seals[3].createdAt);
  for (const ChainSeal& seal : seals) EXPECT_TRUE(Sealer::verify(seal));
  EXPECT_FALSE(Sealer::verify(seals[0], keys[2]));
}

TEST_F(SealerTest, nextNumberFollowsTheHighestName) {
  const struct {
    const char* name;
    const char* file;
    std::int64_t next;
  } kCases[] = {
      {"none", nullptr, 1},
      {"unreadableCounts", "00000002.seal.json", 3},
      {"unfinished", "00000098.seal.json.tmp-1", 3},
      {"nothingCouldFollow", "9223372036854775807.seal.json", 3},
      {"moreDigits", "123456789.seal.json", 123456790},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    if (c.file != nullptr) putSealFile(c.file);
    EXPECT_EQ(make().nextSealNumber(), c.next);
  }
  EXPECT_TRUE(make().allSeals().empty());
  EXPECT_EQ(make().latestSeal(), std::nullopt);
  EXPECT_FALSE(make().keyWasRotated());
}

TEST_F(SealerTest, unreadableSealsArePassedOver) {
  Sealer sealer = make();
  const ChainSeal first = sealer.seal(kHead, 1, 1);
  putSealFile("00000005.seal.json");
  EXPECT_EQ(sealer.latestSeal(), first);
  const ChainSeal next = sealer.seal(kHead, 2, 1);
  EXPECT_EQ(next.sealNumber, 6);
  EXPECT_EQ(sealer.allSeals(), (std::vector<ChainSeal>{first, next}));
}

TEST_F(SealerTest, editedSealsDoNotVerify) {
  putKey();
  const ChainSeal good = make().seal(kHead, 7, 5);
  const std::string otherKey = Sealer(folder_ / "other/key", seals_).publicKeyBase64();
  const struct {
    const char* name;
    std::function<void(ChainSeal&)> edit;
    bool verifies;
  } kCases[] = {
      {"number", [](ChainSeal& s) { s.sealNumber = 2; }, false},
      {"time", [](ChainSeal& s) { s.createdAt.seconds += 1; }, false},
      {"head", [](ChainSeal& s) { s.chainHead[0] = 'e'; }, false},
      {"entries", [](ChainSeal& s) { --s.entryCount; }, false},
      {"messages", [](ChainSeal& s) { --s.messageCount; }, false},
      {"algorithm", [](ChainSeal& s) { s.algorithm = "ed25519"; }, false},
      {"otherKey", [&](ChainSeal& s) { s.publicKey = otherKey; }, false},
      {"keyNoBase64", [](ChainSeal& s) { s.publicKey = "?"; }, false},
      {"signatureShort", [](ChainSeal& s) { s.signature = "c2ln"; }, false},
      {"token", [](ChainSeal& s) { s.timestampToken = "MIIB"; }, true},
      {"failure", [](ChainSeal& s) { s.timestampFailure = "no answer"; }, true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    ChainSeal seal = good;
    c.edit(seal);
    EXPECT_EQ(Sealer::verify(seal), c.verifies);
  }
  EXPECT_FALSE(Sealer::verify(good, otherKey));
}

TEST_F(SealerTest, failingDiskLeavesNoHalfSeal) {
  bool reached = true;
  for (int failing = 0; reached; ++failing) {
    SCOPED_TRACE(failing);
    Sealer sealer = make();
    int step = 0;
    reached = false;
    try {
      const FileSteps steps([&](const FileStep& s) -> std::size_t {
        if (step++ != failing) return s.bytes;
        reached = true;
        if (s.kind == FileStep::Kind::write) return s.bytes / 2;
        throw FileError(FileError::Action::write, s.path, EIO);
      });
      sealer.seal(kHead, 1, 1);
      EXPECT_FALSE(reached);
    } catch (const FileError&) {
      EXPECT_TRUE(reached);
    }
    for (const auto& entry : fs::directory_iterator(seals_)) {
      EXPECT_TRUE(decodeChainSeal(readFile(entry.path()))) << entry.path();
    }
  }
  EXPECT_TRUE(Sealer::verify(make().latestSeal().value()));
}

TEST_F(SealerTest, keyThatCannotBeWrittenIsAnError) {
  fs::create_directories(key_ / "in the way");
  Sealer sealer = make();
  EXPECT_THROW(sealer.seal(kHead, 1, 1), FileError);
  EXPECT_TRUE(fs::is_empty(seals_));
}

}  // namespace
}  // namespace ambervane
