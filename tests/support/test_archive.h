#ifndef AMBERVANE_TESTS_SUPPORT_TEST_ARCHIVE_H_
#define AMBERVANE_TESTS_SUPPORT_TEST_ARCHIVE_H_

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "mailformats/message_importer.h"
#include "store/ingest.h"
#include "store/mail_archive.h"
#include "tests/support/scratch_folder.h"

namespace ambervane {

/// 2026-03-01 10:15:30 UTC, the time at which tests happen.
inline constexpr Date kTestTime{1772360130};

/// Hands out messages from memory, then items that "cannot be read", then a failure if one is set.
class MemoryImporter : public MessageImporter {
 public:
  explicit MemoryImporter(std::vector<Bytes> mails, std::string folder = "INBOX") {
    int number = 0;
    for (Bytes& mail : mails) {
      SourceMessage message;
      message.raw = std::move(mail);
      message.folderPath = folder;
      message.sourceIdentifier = std::to_string(++number);
      message.originPath = "/mail/store.mbox";
      messages.push_back(std::move(message));
    }
  }
  std::string displayName() const override { return "memory"; }
  std::optional<std::int64_t> estimatedCount() const override { return std::nullopt; }
  void forEachMessage(const Body& body, const Unreadable& unreadable) override {
    for (SourceMessage message : messages) {
      if (!body(std::move(message))) return;
    }
    for (const std::string& item : unreadableItems) unreadable(item);
    if (failure) std::rethrow_exception(failure);
  }

  std::vector<SourceMessage> messages;
  std::vector<std::string> unreadableItems;
  std::exception_ptr failure;
};

/// An archive in a folder of its own, with a clock that stands still.
class TestArchive {
 public:
  explicit TestArchive(RetentionPolicy policy = RetentionPolicy(),
                       CompressionEffort effort = CompressionEffort::balanced) {
    archive_ = MailArchive::create(path(), "Test", policy, effort, environment());
  }
  /// A copy of one that is closed, to be opened with `reopen`.
  struct CopyOf {
    const TestArchive& original;
  };
  explicit TestArchive(const CopyOf& copy) {
    std::filesystem::copy(copy.original.path(), path(), std::filesystem::copy_options::recursive);
  }
  ~TestArchive() { archive_.reset(); }

  std::filesystem::path path() const { return folder_ / "test.ambervane"; }
  MailArchive& operator*() { return *archive_; }
  MailArchive* operator->() { return archive_.get(); }

  void close() {
    archive_->close();
    archive_.reset();
  }
  /// Lets go of the archive as a killed process would: nothing is flushed or tidied.
  void drop() { archive_.reset(); }
  void reopen(OpenMode mode = OpenMode::readWrite) {
    archive_.reset();
    archive_ = std::make_unique<MailArchive>(path(), mode, environment());
  }

  IngestSummary ingest(std::vector<Bytes> mails, const std::string& folder = "INBOX",
                       const std::string& account = "anna") {
    MemoryImporter importer(std::move(mails), folder);
    return ingest(importer, account);
  }
  IngestSummary ingest(MessageImporter& importer, const std::string& account = "anna") {
    IngestOptions options;
    options.accountName = account;
    options.accountKind = "mbox";
    options.sourcePath = "/mail/store.mbox";
    return ingestAll(*archive_, importer, options, nullptr, nullptr);
  }

  /// Every entry of an action, oldest first.
  std::vector<AuditEntry> entries(AuditAction action) {
    std::vector<AuditEntry> found;
    archive_->journal().forEachEntry([&](const AuditEntry& entry) {
      if (entry.action == action) found.push_back(entry);
      return true;
    });
    return found;
  }

  static ArchiveEnvironment environment() {
    return {.clock = [] { return kTestTime; }, .archiveLock = {}, .journalLock = {}};
  }

 private:
  ScratchFolder folder_;
  std::unique_ptr<MailArchive> archive_;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_SUPPORT_TEST_ARCHIVE_H_
