#include "store/pack_store.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/digest.h"
#include "base/file.h"
#include "platform/immutable_flag.h"
#include "store/pack_error.h"
#include "tests/support/file_faults.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kGigabyte = 1073741824;
constexpr RecordFlags kStored = RecordFlags::make(Codec::stored, false, false);

/// The worked example of docs/format/pack.md.
const Bytes kExamplePayload{"\x01\x01\x00\x00\x16\x00\x00\x00Subject: Hi\r\n\r\nHello\r\n", 30};
const Bytes kExamplePack{
    "AVPACK\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00"
    "AVR1\x30\x00\x01\x00\x1e\x00\x00\x00\x1e\x00\x00\x00\x53\x1c\x15\x72"
    "\x01\x01\x00\x00\x16\x00\x00\x00Subject: Hi\r\n\r\nHello\r\n",
    66};

PackLocation appendText(PackStore& store, BytesView text, std::int64_t packID = 1) {
  return store.append(text, text.size(), kStored, 0, packID);
}

std::string failureOf(const std::function<void()>& body) {
  try {
    body();
  } catch (const TranslatableError& error) {
    return error.message().text();
  }
  return "no failure";
}

TEST(PackStore, writesTheDocumentedBytes) {
  const ScratchFolder folder;
  PackStore store(folder.path() / "packs", kGigabyte, false);
  EXPECT_EQ(store.openForWriting(1), 16);
  EXPECT_EQ(readFile(store.packURL(1)), kExamplePack.substr(0, 16));
  EXPECT_EQ(store.append(kExamplePayload, 30, kStored, 1, 1), (PackLocation{1, 16, 30, 30}));
  EXPECT_EQ(readFile(folder.path() / "packs/00000001.pack"), kExamplePack);
  EXPECT_EQ(store.bytesAppended(), 50U);
  EXPECT_EQ(appendText(store, ""), (PackLocation{1, 66, 0, 0}));
  EXPECT_EQ(readFile(store.packURL(1)).substr(66),
            BytesView("AVR1\x30\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00", 20));
  EXPECT_EQ(store.read({1, 66}).payload, "");
}

TEST(RecordFlags, bits) {
  static constexpr struct {
    const char* name;
    Codec codec;
    bool encrypted, blob;
    std::uint16_t bits;
  } kCases[] = {
      {"deflate", Codec::deflateDictionary, false, false, 0x01},
      {"lzfse", Codec::lzfse, false, false, 0x11},
      {"lzma", Codec::lzma, false, false, 0x21},
      {"stored", Codec::stored, false, false, 0x30},
      {"brotli", Codec::brotli, false, false, 0x41},
      {"encryptedLzfseBlob", Codec::lzfse, true, true, 0x17},
      {"storedBlob", Codec::stored, false, true, 0x34},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const RecordFlags flags = RecordFlags::make(c.codec, c.encrypted, c.blob);
    EXPECT_EQ(flags.bits, c.bits);
    EXPECT_EQ(flags.codec(), c.codec);
    EXPECT_EQ(flags.deflated(), c.codec != Codec::stored);
    EXPECT_EQ(flags.encrypted(), c.encrypted);
    EXPECT_EQ(flags.blob(), c.blob);
  }
  EXPECT_EQ(RecordFlags{0x51}.codec(), Codec::deflateDictionary) << "number without a codec";
  EXPECT_TRUE(RecordFlags{0x29}.solidBlock());
}

TEST(PackStore, damage) {
  const ScratchFolder folder;
  static constexpr std::int64_t kFar = std::numeric_limits<std::int64_t>::max();
  static constexpr struct {
    const char* name;
    std::size_t at;   ///< byte of the example pack to change
    char mask;        ///< bits of it to flip
    std::size_t cut;  ///< bytes to cut off the end
    std::int64_t offset;
    const char* failure;
  } kCases[] = {
      {"none", 0, 0, 0, 16, "no failure"},
      {"payloadBit", 36, 1, 0, 16, "Checksum mismatch in pack 1 at offset 16"},
      {"lastPayloadBit", 65, 0x40, 0, 16, "Checksum mismatch in pack 1 at offset 16"},
      {"checksumBit", 32, 1, 0, 16, "Checksum mismatch in pack 1 at offset 16"},
      {"shorterLength", 28, 2, 0, 16, "Checksum mismatch in pack 1 at offset 16"},
      {"longerLength", 28, 1, 0, 16, "Corrupt pack record: record runs past end of pack 1"},
      {"hugeLength", 31, '\x80', 0, 16, "Corrupt pack record: record runs past end of pack 1"},
      {"cutPayload", 0, 0, 1, 16, "Corrupt pack record: record runs past end of pack 1"},
      {"cutHeader", 0, 0, 31, 16, "Corrupt pack record: offset 16 past end of pack 1"},
      {"emptyFile", 0, 0, 66, 16, "Corrupt pack record: offset 16 past end of pack 1"},
      {"recordMagic", 16, 1, 0, 16, "Corrupt pack record: bad record magic in pack 1 at 16"},
      {"insideRecord", 0, 0, 0, 17, "Corrupt pack record: bad record magic in pack 1 at 17"},
      {"flagsAreNotCovered", 20, 4, 0, 16, "no failure"},
      {"fileMagicIsNotLookedAt", 0, 1, 0, 16, "no failure"},
      {"endOfFile", 0, 0, 0, 66, "Corrupt pack record: offset 66 past end of pack 1"},
      {"headerCrossesEnd", 0, 0, 0, 47, "Corrupt pack record: offset 47 past end of pack 1"},
      {"negative", 0, 0, 0, -1, "Corrupt pack record: offset -1 past end of pack 1"},
      {"farAway", 0, 0, 0, kFar,
       "Corrupt pack record: offset 9223372036854775807 past end of pack 1"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    Bytes bytes = kExamplePack;
    bytes[c.at] = static_cast<char>(bytes[c.at] ^ c.mask);
    bytes.resize(bytes.size() - c.cut);
    writeFileAtomically(folder.path() / "00000001.pack", bytes);
    PackStore store(folder.path(), kGigabyte, true);
    EXPECT_EQ(failureOf([&] { store.read({1, c.offset}); }), c.failure);
    EXPECT_EQ(failureOf([&] { store.read({1, c.offset}); }), c.failure) << "from the cache";
  }
  PackStore store(folder.path(), kGigabyte, true);
  EXPECT_EQ(failureOf([&] { store.read({2, 16}); }), "Pack file 00000002.pack is missing");
  EXPECT_EQ(failureOf([&] { store.digest(2); }), "Pack file 00000002.pack is missing");
}

TEST(PackStore, diskFullAtEveryByte) {
  static constexpr BytesView kFirst = "flushed";
  static constexpr BytesView kSecond = "lost on a full disk";
  for (std::size_t room = 0; room < kRecordHeaderBytes + kSecond.size(); ++room) {
    SCOPED_TRACE(room);
    const ScratchFolder folder;
    PackLocation first, third;
    {
      PackStore store(folder.path(), kGigabyte, false);
      first = appendText(store, kFirst);
      store.flush();
      {
        const FullDisk full(room);
        EXPECT_THROW(appendText(store, kSecond), FileError);
      }
      EXPECT_EQ(store.bytesAppended(), kRecordHeaderBytes + kFirst.size());
      EXPECT_EQ(store.read(first).payload, kFirst);
      third = appendText(store, "behind the dead bytes");
      EXPECT_EQ(third.offset,
                static_cast<std::int64_t>(16 + kRecordHeaderBytes + kFirst.size() + room));
      EXPECT_EQ(store.read(third).payload, "behind the dead bytes");
    }
    PackStore reopened(folder.path(), kGigabyte, false);
    reopened.openForWriting(1);
    EXPECT_EQ(reopened.read(first).payload, kFirst);
    EXPECT_EQ(reopened.read(third).payload, "behind the dead bytes");
    EXPECT_EQ(reopened.read(appendText(reopened, "later")).payload, "later");
  }
}

TEST(PackStore, newPackOnFullDiskLeavesNothing) {
  for (std::size_t room = 0; room < kPackHeaderBytes; ++room) {
    SCOPED_TRACE(room);
    const ScratchFolder folder;
    PackStore store(folder.path(), kGigabyte, false);
    {
      const FullDisk full(room);
      EXPECT_THROW(store.openForWriting(1), FileError);
    }
    EXPECT_TRUE(fs::is_empty(folder.path()));
    EXPECT_EQ(store.openForWriting(1), 16);
  }
}

TEST(PackStore, stopsWritingAfterAFailedSync) {
  const ScratchFolder folder;
  PackStore store(folder.path(), kGigabyte, false);
  const PackLocation location = appendText(store, "unknown whether on disk");
  {
    const FailingSync failing;
    EXPECT_THROW(store.flush(), FileError);
  }
  EXPECT_THROW(store.flush(), FileError) << "a second flush must not claim success";
  EXPECT_THROW(appendText(store, "more"), FileError);
  EXPECT_THROW(store.seal(1, false), FileError);
  EXPECT_THROW(store.openForWriting(2), FileError);
  EXPECT_EQ(store.read(location).payload, "unknown whether on disk");
  EXPECT_EQ(fs::file_size(store.packURL(1)), 16 + 20 + 23U);
}

TEST(PackStore, readMakesDurableOnce) {
  const ScratchFolder folder;
  PackStore store(folder.path(), kGigabyte, false);
  const PackLocation first = appendText(store, "one");
  int syncs = 0;
  const FileSteps counting([&syncs](const FileStep& step) {
    syncs += step.kind == FileStep::Kind::sync ? 1 : 0;
    return step.bytes;
  });
  store.read(first);
  store.read(first);
  EXPECT_EQ(syncs, 1);
  EXPECT_EQ(store.read(appendText(store, "two")).payload, "two");
  store.flush();
  EXPECT_EQ(syncs, 2);
  appendText(store, "three");
  store.openForWriting(2);
  EXPECT_EQ(syncs, 5) << "of the old pack, the new one and the folder";
}

TEST(PackStore, cacheKeepsSixAndTheCurrentPack) {
  const ScratchFolder folder;
  PackStore store(folder.path(), kGigabyte, false);
  for (std::int64_t id = 1; id <= 8; ++id) appendText(store, std::to_string(id), id);
  const auto held = store.read({1, 16});
  for (std::int64_t id = 2; id <= 8; ++id) {
    EXPECT_EQ(store.read({id, 16}).payload, std::to_string(id));
  }
  for (std::int64_t id = 1; id <= 7; ++id) fs::remove(store.packURL(id));
  EXPECT_THROW(store.read({1, 16}), PackError) << "evicted by the seventh";
  EXPECT_EQ(held.payload, "1") << "a reader keeps its mapping alive";
  for (std::int64_t id = 2; id <= 8; ++id) {
    EXPECT_EQ(store.read({id, 16}).payload, std::to_string(id));
  }
  store.invalidateCache();
  EXPECT_THROW(store.read({7, 16}), PackError);
}

TEST(PackStore, readerSeesAPackGrow) {
  const ScratchFolder folder;
  PackStore writer(folder.path(), kGigabyte, false);
  const PackLocation first = appendText(writer, "first");
  PackStore reader(folder.path(), kGigabyte, true);
  EXPECT_EQ(reader.read(first).payload, "first");
  const PackLocation second = appendText(writer, "second");
  EXPECT_EQ(reader.read(second).payload, "second");
}

TEST(PackStore, readersBesideTheWriter) {
  const ScratchFolder folder;
  PackStore store(folder.path(), kGigabyte, false);
  const PackLocation first = appendText(store, "first");
  std::vector<std::thread> readers;
  readers.reserve(3);
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(store.read(first).payload, "first");
        if (round % 10 == 0) store.invalidateCache();
      }
    });
  }
  for (std::int64_t round = 0; round < 100; ++round) appendText(store, "more", 1 + round / 50);
  for (std::thread& reader : readers) reader.join();
}

TEST(PackStore, readOnlyRefusesWithoutATrace) {
  const ScratchFolder folder;
  PackStore store(folder.path() / "packs", kGigabyte, true);
  const std::string refusal = "Archive is open read-only";
  EXPECT_EQ(failureOf([&] { store.openForWriting(1); }), refusal);
  EXPECT_EQ(failureOf([&] { appendText(store, "x"); }), refusal);
  EXPECT_EQ(failureOf([&] { store.seal(1, true); }), refusal);
  EXPECT_NO_THROW(store.flush());
  EXPECT_FALSE(fs::exists(folder.path() / "packs"));
}

TEST(PackStore, neverReplacesWhatItCannotLookAt) {
  const ScratchFolder folder;
  PackStore store(folder.path(), kGigabyte, false);
  fs::create_symlink("00000001.pack", store.packURL(1));  // a loop: stat fails with ELOOP
  EXPECT_THROW(store.openForWriting(1), FileError);
  EXPECT_TRUE(fs::is_symlink(store.packURL(1)));
}

TEST(PackStore, sizeLimits) {
  const ScratchFolder folder;
  PackStore store(folder.path(), kGigabyte, false);
  // Mapped without memory behind it: only the first test of its size may touch it.
  const std::size_t limit = kMaxRecordPayloadBytes;
  void* const data =
      ::mmap(nullptr, limit + 1, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(data, MAP_FAILED);
  const BytesView bytes(static_cast<const char*>(data), limit + 1);
  EXPECT_EQ(failureOf([&] { appendText(store, bytes); }),
            "Record of 536870913 bytes exceeds the pack record limit");
  EXPECT_EQ(failureOf([&] { store.append("x", std::size_t{1} << 32, kStored, 0, 1); }),
            "Record of 4294967296 bytes exceeds the pack record limit");
  EXPECT_TRUE(fs::is_empty(folder.path())) << "refused before any file is touched";
  store.openForWriting(1);
  {
    const FullDisk full(kRecordHeaderBytes);
    EXPECT_THROW(appendText(store, bytes.substr(1)), FileError) << "taken, and cut by the disk";
  }
  EXPECT_EQ(fs::file_size(store.packURL(1)), 36U);
  ::munmap(data, limit + 1);
}

TEST(PackStore, rollover) {
  static constexpr struct {
    const char* name;
    std::int64_t maxPackBytes, adding;
    bool emptyPack, expected;
  } kCases[] = {
      {"fits", 100, 41, false, false},
      {"fillsExactly", 100, 42, false, false},
      {"oneTooMany", 100, 43, false, true},
      {"hugeRecord", 100, std::numeric_limits<std::int64_t>::max(), false, true},
      {"emptyPackTakesAny", 100, 1000, true, false},
      {"negativeLimit", std::numeric_limits<std::int64_t>::min(), 1, false, true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const ScratchFolder folder;
    PackStore store(folder.path(), c.maxPackBytes, false);
    store.openForWriting(1);
    if (!c.emptyPack) appendText(store, "0123456789012345678901");  // the pack is 58 bytes now
    EXPECT_EQ(store.needsRollover(c.adding), c.expected);
  }
}

TEST(PackStore, seal) {
  const ScratchFolder folder;
  PackStore store(folder.path(), kGigabyte, false);
  store.append(kExamplePayload, 30, kStored, 1, 1);
  const PackStore::Seal open = store.seal(1, false);
  EXPECT_EQ(open.sha256, sha256Hex(kExamplePack));
  EXPECT_EQ(open.bytes, 66);
  EXPECT_FALSE(open.immutable);
  EXPECT_FALSE(store.needsRollover(kGigabyte)) << "no pack is current";

  const PackStore::Seal worm = store.seal(1, true);
  EXPECT_EQ(worm.sha256, store.digest(1));
  EXPECT_EQ(fs::status(store.packURL(1)).permissions(), static_cast<fs::perms>(0444));
  EXPECT_EQ(worm.immutable, isImmutable(store.packURL(1))) << "an honest answer";
  if (worm.immutable) {
    EXPECT_THROW(store.openForWriting(1), PackError);
  }

  store.unlockForAppend(1);
  EXPECT_EQ(fs::status(store.packURL(1)).permissions(), static_cast<fs::perms>(0644));
  EXPECT_EQ(store.openForWriting(1), 66);
  EXPECT_THROW(store.seal(2, true), PackError) << "missing";
}

}  // namespace
}  // namespace ambervane
