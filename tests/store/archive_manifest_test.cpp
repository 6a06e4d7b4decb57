#include "store/archive_manifest.h"

#include <gtest/gtest.h>

#include <string>

#include "base/json.h"
#include "store/archive_error.h"
#include "tests/support/file_faults.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {
namespace {

const Date kCreated{1772360130};  // 2026-03-01T10:15:30Z

ArchiveManifest exampleManifest() {
  ArchiveManifest manifest;
  manifest.archiveID = "3F2504E0-4F89-41D3-9A0C-0305E82C3301";
  manifest.name = "Köchel & Söhne";
  manifest.createdAt = kCreated;
  manifest.createdBy = "Ambervane on desk";
  return manifest;
}

/// What `fromJson` says of `text`, or nothing.
std::string failureOf(const std::string& text) {
  try {
    ArchiveManifest::fromJson(text, "archive.json", kCreated);
  } catch (const JsonError& error) {
    return error.message().text();
  }
  return "";
}

TEST(ArchiveManifest, writesTheDocumentedText) {
  const std::string text = exampleManifest().toJson();
  EXPECT_EQ(text.substr(0, text.find("  \"policy\"")), R"({
  "archiveID": "3F2504E0-4F89-41D3-9A0C-0305E82C3301",
  "attachmentExtractionThreshold": 4096,
  "compression": "per-record: deflate+dictionary, LZFSE, LZMA — smallest wins",
  "compressionEffort": "balanced",
  "createdAt": "2026-03-01T10:15:30Z",
  "createdBy": "Ambervane on desk",
  "dictionaryTrainingSample": 2000,
  "formatVersion": 3,
  "maxPackBytes": 1073741824,
  "minimumReaderVersion": 1,
  "name": "Köchel & Söhne",
)");
}

TEST(ArchiveManifest, roundTrip) {
  const ScratchFolder folder;
  const auto path = folder.path() / "archive.json";
  ArchiveManifest manifest = exampleManifest();
  manifest.minimumReaderVersion = 2;
  manifest.compressionEffort = CompressionEffort::smallest;
  manifest.policy.sealEveryEntries = 7;
  manifest.attachmentExtractionThreshold = 1;
  manifest.maxPackBytes = std::int64_t{1} << 40;
  manifest.save(path);
  const ArchiveManifest loaded = ArchiveManifest::load(path, Date{});
  EXPECT_EQ(loaded.toJson(), manifest.toJson());
  EXPECT_EQ(loaded.policy, manifest.policy);
  EXPECT_EQ(loaded.createdAt, kCreated);
}

TEST(ArchiveManifest, missingFields) {
  for (const char* text :
       {R"({"archiveID":"x"})", R"({"archiveID":"x","name":null,"policy":null})"}) {
    SCOPED_TRACE(text);
    const auto manifest = ArchiveManifest::fromJson(text, "archive.json", kCreated);
    EXPECT_EQ(manifest.formatVersion, 1);
    EXPECT_EQ(manifest.minimumReaderVersion, 1);
    EXPECT_EQ(manifest.name, "Archive");
    EXPECT_EQ(manifest.createdAt, kCreated);
    EXPECT_EQ(manifest.createdBy, "unknown");
    EXPECT_EQ(manifest.policy, RetentionPolicy());
    EXPECT_EQ(manifest.policy.sealEveryEntries, 1000);
    EXPECT_EQ(manifest.compression, "deflate+dictionary");
    EXPECT_EQ(manifest.compressionEffort, CompressionEffort::balanced);
    EXPECT_EQ(manifest.attachmentExtractionThreshold, 4096);
    EXPECT_EQ(manifest.dictionaryTrainingSample, 2000);
    EXPECT_EQ(manifest.maxPackBytes, 1073741824);
    EXPECT_EQ(manifest.unknownMembers, "");
  }
}

TEST(ArchiveManifest, damage) {
  static constexpr struct {
    const char* name;
    const char* text;
    const char* detail;
  } kCases[] = {
      {"noIdentifier", "{}", "archiveID is missing"},
      {"array", "[]", "it is not a JSON object"},
      {"identifierNumber", R"({"archiveID":1})", "archiveID is not a text"},
      {"versionText", R"({"archiveID":"x","formatVersion":"3"})",
       "formatVersion is not a whole number in its range"},
      {"versionFraction", R"({"archiveID":"x","formatVersion":3.5})",
       "formatVersion is not a whole number in its range"},
      {"versionBeyondItsType", R"({"archiveID":"x","minimumReaderVersion":4294967297})",
       "minimumReaderVersion is not a whole number in its range"},
      {"sizeBeyondItsType", R"({"archiveID":"x","maxPackBytes":18446744073709551615})",
       "maxPackBytes is not a whole number in its range"},
      {"date", R"({"archiveID":"x","createdAt":"yesterday"})", "createdAt is not a date"},
      {"effort", R"({"archiveID":"x","compressionEffort":"extreme"})",
       "compressionEffort is unknown: extreme"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(failureOf(c.text), std::string("archive.json is damaged: ") + c.detail);
  }
  EXPECT_TRUE(failureOf("{\"archiveID\":").starts_with("archive.json is damaged: "));
}

TEST(ArchiveManifest, keepsWhatANewerVersionWrote) {
  auto manifest = ArchiveManifest::fromJson(
      R"({"archiveID":"x","formatVersion":9,"shards":{"b":[1,2]},"replica":null})", "a", kCreated);
  manifest.minimumReaderVersion = 2;
  const auto rewritten = ArchiveManifest::fromJson(manifest.toJson(), "a", kCreated);
  EXPECT_EQ(rewritten.unknownMembers, R"({"replica":null,"shards":{"b":[1,2]}})");
  EXPECT_EQ(rewritten.formatVersion, 9);
  EXPECT_EQ(rewritten.minimumReaderVersion, 2);
}

TEST(ArchiveManifest, folderWithoutOneIsNoArchive) {
  const ScratchFolder folder;
  try {
    ArchiveManifest::load(folder.path() / "archive.json", kCreated);
    FAIL();
  } catch (const ArchiveError& error) {
    EXPECT_EQ(std::get<ArchiveError::NotAnArchive>(error.reason()).path, folder.path().native());
  }
}

TEST(ArchiveManifest, diskFullLeavesTheOldOne) {
  const ScratchFolder folder;
  const auto path = folder.path() / "archive.json";
  ArchiveManifest manifest = exampleManifest();
  manifest.save(path);
  manifest.minimumReaderVersion = 3;
  {
    const FullDisk full(40);
    EXPECT_THROW(manifest.save(path), FileError);
  }
  EXPECT_EQ(ArchiveManifest::load(path, kCreated).minimumReaderVersion, 1);
}

}  // namespace
}  // namespace ambervane
