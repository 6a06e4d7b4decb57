// The index is written by one thread, while a pool parses the messages that follow: the catalog is
// read and written here alone, and what is held in memory is bounded.

#include "search/search_index.h"

#include <deque>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "base/thread_pool.h"
#include "mailcore/parsed_message.h"
#include "store/attachment_index_text.h"
#include "store/message_reader.h"
#include "store/recorded_change.h"

namespace ambervane {
namespace {

/// What may wait for the pool.
constexpr std::size_t kMaxWaitingMessages = 64;
constexpr std::size_t kMaxWaitingBytes = std::size_t{64} << 20;

class Rebuild {
 public:
  Rebuild(MailArchive& archive, const std::function<void(std::int64_t, std::int64_t)>& progress)
      : archive_(archive), catalog_(archive.catalog()), progress_(progress) {}

  ReindexSummary run() {
    SQLiteDatabase& database = catalog_.database();
    total_ = database.count("SELECT COUNT(*) FROM message WHERE erased = 0");
    database.execute("DROP TABLE IF EXISTS message_fts");
    catalog_.createSearchIndex();
    // Identifiers first: a statement over the table must not stand open while blocks that wait are
    // flushed into it.
    std::vector<std::int64_t> ids;
    database.forEachRow("SELECT id FROM message WHERE erased = 0 ORDER BY id", {},
                        [&ids](const Row& row) {
                          ids.push_back(row.integer("id"));
                          return true;
                        });
    for (const std::int64_t id : ids) {
      while (waiting_.size() >= kMaxWaitingMessages || waitingBytes_ > kMaxWaitingBytes) takeOne();
      submit(id);
    }
    while (!waiting_.empty()) takeOne();
    catalog_.optimizeSearchIndex();
    return summary_;
  }

 private:
  struct Message {
    std::int64_t id = 0;
    Bytes raw;
    IndexedText text;
    bool isReadable = false;
  };
  struct Waiting {
    std::shared_ptr<Message> message;
    std::size_t bytes = 0;
    std::future<void> done;
  };

  void submit(std::int64_t id) {
    auto message = std::make_shared<Message>();
    message->id = id;
    try {
      const auto row = catalog_.message(id);
      if (row) {
        message->raw = rawMessage(archive_, *row);
        message->text.participants = row->participants;
        message->text.attachments = fileNames(id);
        message->isReadable = true;
      }
    } catch (const TranslatableError&) {
      // Counted below; what ails the message is for a verification to say.
    }
    waitingBytes_ += message->raw.size();
    const std::size_t bytes = message->raw.size();
    auto done =
        pool_.submit([message, reader = archive_.attachmentText()] { parse(*message, reader); });
    waiting_.push_back({std::move(message), bytes, std::move(done)});
  }

  static void parse(Message& message, const AttachmentTextReader* reader) {
    if (!message.isReadable) return;
    const ParsedMessage parsed(message.raw);
    message.text.subject = parsed.subject();
    AttachmentIndexText texts(reader);
    parsed.forEachAttachment([&texts](AttachmentRef&& attachment, DecodedBytes&& decoded) {
      texts.add(attachment, decoded.view());
    });
    message.text.attachments += texts.takeTexts();
    message.text.body = std::string(prefixCharacters(parsed.texts().all, kMaxIndexedCharacters));
    message.raw = Bytes();
  }

  std::string fileNames(std::int64_t id) {
    std::vector<std::string> names;
    for (AttachmentRow& attachment : catalog_.attachments(id)) {
      if (attachment.filename) names.push_back(*std::move(attachment.filename));
    }
    return join(names, " ");
  }

  void takeOne() {
    Waiting next = std::move(waiting_.front());
    waiting_.pop_front();
    waitingBytes_ -= next.bytes;
    next.done.get();
    ++summary_.messages;
    if (next.message->isReadable) {
      catalog_.indexText(next.message->id, next.message->text);
    } else {
      ++summary_.unreadable;
    }
    if (progress_) progress_(summary_.messages, total_);
  }

  MailArchive& archive_;
  Catalog& catalog_;
  const std::function<void(std::int64_t, std::int64_t)>& progress_;
  ReindexSummary summary_;
  std::int64_t total_ = 0;
  std::size_t waitingBytes_ = 0;
  std::deque<Waiting> waiting_;
  ThreadPool pool_{ThreadPool::processorCount()};
};

}  // namespace

ReindexSummary rebuildSearchIndex(
    MailArchive& archive,
    const std::function<void(std::int64_t done, std::int64_t total)>& progress) {
  if (archive.readOnly() || !archive.catalog().supportsFTS()) return {};
  archive.flushSolidBlock();
  RecordedChange change(archive);
  const ReindexSummary summary = Rebuild(archive, progress).run();
  archive.catalog().bumpMutationGeneration();
  archive.journal().append(
      AuditAction::integrityVerified, "search-index",
      {{"reindexed", std::to_string(summary.messages)}, {"reason", "index rules changed"}});
  change.finish();
  return summary;
}

}  // namespace ambervane
