// Fills an archive with synthetic mail, once, and times what somebody does with it all day.

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <system_error>

#include "base/text.h"
#include "cli/commands.h"
#include "cli/interrupt.h"
#include "cli/synthetic_mail.h"
#include "mailcore/parsed_message.h"
#include "query/boolean_query_parser.h"
#include "query/search_query_parser.h"
#include "search/search_archive.h"
#include "search/smart_folders.h"
#include "store/ingest.h"
#include "store/message_reader.h"

namespace ambervane {
namespace {

constexpr const char* kUsage =
    "usage: ambervane bench <archive> [--messages 100000] [--accounts 3]";
constexpr std::int64_t kDefaultMessages = 100000;
constexpr std::int64_t kDefaultAccounts = 3;
/// Marks the accounts of synthetic mail in the catalog.
constexpr const char* kAccountKind = "synthetic";

constexpr int kTries = 3;
constexpr std::int64_t kPageSize = 200;
/// Repeated opens: in each round the same messages.
constexpr std::size_t kRounds = 50;
constexpr std::size_t kComparedRounds = 10;
constexpr std::int64_t kMessagesPerRound = 20;
/// Seconds between two drawings of the progress line.
constexpr double kRedraw = 0.1;

double millisecondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

/// A count given as an option, at least 1.
std::int64_t countOption(const Arguments& arguments, const std::string& name,
                         std::int64_t otherwise) {
  const auto text = arguments.option(name);
  return std::max<std::int64_t>(1, text ? parseInteger(*text).value_or(otherwise) : otherwise);
}

std::unique_ptr<MailArchive> openOrCreate(const Arguments& arguments, Console& console) {
  const std::filesystem::path path = standardizedPath(arguments.positional[0]);
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    return MailArchive::create(path, pathText(path.stem()), RetentionPolicy(),
                               CompressionEffort::balanced);
  }
  return openArchive(arguments, console, OpenMode::readWrite);
}

/// What is archived stays: no made-up mail goes into an archive of real mail.
void requireOnlySyntheticMail(MailArchive& archive) {
  for (const AccountRow& account : archive.catalog().accounts()) {
    if (account.kind == kAccountKind) continue;
    throw CLIError::usage("the archive holds other mail (account " + printable(account.name) +
                          "), and synthetic mail could not be taken out of it again; name a new "
                          "archive, or fewer messages than it holds");
  }
}

struct Filling {
  std::int64_t added = 0;
  std::int64_t duplicates = 0;
  std::int64_t bytes = 0;
  bool cancelled = false;
};

/// Takes `messages` synthetic messages in, spread over `accounts` mailboxes.
Filling fill(MailArchive& archive, std::int64_t messages, std::int64_t accounts, Console& console) {
  const InterruptGuard guard;
  ProgressLine line(console);
  Filling filling;
  double drawnAt = 0;
  for (std::int64_t account = 0; account < std::min(accounts, messages) && !filling.cancelled;
       ++account) {
    SyntheticImporter importer(account, messages / accounts + (account < messages % accounts));
    IngestOptions options;
    options.accountName = "bench-" + std::to_string(account + 1);
    options.accountKind = kAccountKind;
    const IngestSummary summary = ingestAll(
        archive, importer, options, InterruptGuard::interrupted,
        [&](const IngestSummary& state, const std::string&) {
          const double now = archive.now().seconds;
          if (!line.isShown() || now - drawnAt < kRedraw) return;
          drawnAt = now;
          line.show(fmt::format("{} of {} → {}  [{:.0f} msg/s]",
                                filling.added + filling.duplicates + state.examined(), messages,
                                options.accountName, state.throughput.messagesPerSecond()));
        });
    if (!summary.errors.empty()) {
      throw CLIError::usage("synthetic mail was refused: " + summary.errors.front());
    }
    filling.added += summary.added;
    filling.duplicates += summary.duplicates;
    filling.bytes += importer.bytes();
    filling.cancelled = summary.cancelled;
  }
  return filling;
}

void reportFilling(const Filling& filling, double seconds, std::ostream& out) {
  const double elapsed = std::max(seconds, 1e-3);
  out << fmt::format(
      "  ingested {} ({} duplicates) in {:.1f} s — {:.0f} msg/s, {}/s\n", filling.added,
      filling.duplicates, seconds,
      static_cast<double>(filling.added + filling.duplicates) / elapsed,
      humanBytes(static_cast<std::int64_t>(static_cast<double>(filling.bytes) / elapsed)));
}

void reportSizes(MailArchive& archive, std::ostream& out) {
  if (!archive.readOnly()) archive.catalog().database().checkpoint();
  const auto mail =
      static_cast<double>(std::max<std::int64_t>(archive.catalog().stats().originalBytes, 1));
  const DiskUsage usage = diskUsage(archive.url());
  std::int64_t catalog = 0;
  for (const DiskUsage::Part& part : usage.parts) {
    if (part.id == "catalog") catalog = part.bytes;
  }
  out << fmt::format("Stored     : {:.1f}% of the mail it holds\n",
                     100.0 * static_cast<double>(usage.records()) / mail)
      << fmt::format("Catalog    : {:.1f}% of the mail it indexes\n",
                     100.0 * static_cast<double>(catalog) / mail);
}

/// What the operations are tried on.
struct Subject {
  MailArchive& archive;
  std::int64_t largestFolder;  ///< the one with most messages
  MessageRow message;          ///< from the middle of the archive
};

Subject subjectOf(MailArchive& archive) {
  SQLiteDatabase& db = archive.catalog().database();
  const std::int64_t middle = db.count(
      "SELECT id FROM message WHERE erased = 0 AND attachment_count > 0 ORDER BY abs(id - (SELECT "
      "MAX(id) / 2 FROM message)) LIMIT 1");
  auto row = archive.catalog().message(middle);
  if (!row) row = archive.catalog().message(db.count("SELECT MIN(id) FROM message"));
  if (!row) throw CLIError::usage("the archive holds no message");
  return {archive,
          db.count("SELECT folder_id FROM message_folder WHERE removed_at IS NULL GROUP BY "
                   "folder_id ORDER BY COUNT(*) DESC LIMIT 1"),
          *row};
}

std::string openSidebar(const Subject& subject) {
  Catalog& catalog = subject.archive.catalog();
  const auto accounts = catalog.accounts();
  const auto folders = catalog.folders();
  std::int64_t messages = 0;
  for (const FolderCount& folder : catalog.folderCounts()) messages += folder.messages;
  return fmt::format("{} accounts, {} folders, {} messages", accounts.size(), folders.size(),
                     messages);
}

std::string firstPageDirect(const Subject& subject) {
  std::vector<MessageRow> page;
  subject.archive.catalog().database().forEachRow(
      "SELECT m.* FROM message_folder mf JOIN message m ON m.id = mf.message_id WHERE mf.folder_id "
      "= ? AND mf.removed_at IS NULL AND m.erased = 0 ORDER BY mf.sent_at DESC, mf.message_id DESC "
      "LIMIT ?",
      {subject.largestFolder, kPageSize}, [&page](const Row& row) {
        page.emplace_back(row);
        return true;
      });
  return fmt::format("{} rows", page.size());
}

/// One page of what `query` finds, as the search command asks, without an entry in the journal.
std::string found(const Subject& subject, SearchQuery query) {
  query.recordInJournal = false;
  const SearchResult result = searchArchive(subject.archive, query);
  return fmt::format("{} of {} messages", result.hits.size(), result.displayCount());
}

std::string clickMailbox(const Subject& subject) {
  SearchQuery query;
  query.folderID = subject.largestFolder;
  return found(subject, std::move(query));
}

std::string searchCommonWord(const Subject& subject) {
  return found(subject, SearchQueryParser::parse("Rechnung"));
}

std::string searchRarePhrase(const Subject& subject) {
  return found(subject, SearchQueryParser::parse("\"Zahlungsziel Konditionen\""));
}

std::string searchSender(const Subject& subject) {
  return found(subject, SearchQueryParser::parse("from:person7"));
}

std::string pageDeep(const Subject& subject) {
  SearchQuery query;
  query.offset = 100000;
  return found(subject, std::move(query));
}

std::string countSmartFolder(const Subject& subject, const char* line) {
  const auto filter = BooleanQueryParser::parse(line);
  if (!filter) return "no rules";
  const SmartFolderCount count = smartFolderCount(subject.archive, *filter);
  return fmt::format("{}{} messages", count.count, count.isExact ? "" : "+");
}

std::string countBroad(const Subject& subject) { return countSmartFolder(subject, "larger:1"); }

std::string countNested(const Subject& subject) {
  return countSmartFolder(subject,
                          "(Rechnung OR Offerte) has:attachment NOT (from:person7 OR subject:Re)");
}

/// Decompresses and parses, as a window with a message does; returns the text it shows.
std::string open(MailArchive& archive, const MessageRow& row) {
  const Bytes raw = rawMessage(archive, row);
  return ParsedMessage(raw).plainTextBody();
}

std::string openMessage(const Subject& subject) {
  const std::string text = open(subject.archive, subject.message);
  return fmt::format("{}, {} of text", humanBytes(subject.message.size),
                     humanBytes(static_cast<std::int64_t>(text.size())));
}

std::string findAttachments(const Subject& subject) {
  const auto rows = subject.archive.catalog().database().query(
      "SELECT m.id, m.subject, a.filename, a.size_decoded FROM attachment a JOIN message m ON m.id "
      "= a.message_id WHERE a.filename LIKE '%Preisliste%' AND m.erased = 0 ORDER BY m.sent_at "
      "DESC LIMIT ?",
      {kPageSize});
  return fmt::format("{} rows", rows.size());
}

struct Operation {
  std::string_view label;
  std::string (*run)(const Subject& subject);  ///< returns what came of it, for people
};

constexpr Operation kOperations[] = {
    {"open the sidebar (folders + counts)", openSidebar},
    {"first page of a mailbox (direct)", firstPageDirect},
    {"click a mailbox (what the app does)", clickMailbox},
    {"full-text search with a common word", searchCommonWord},
    {"full-text search with a rare phrase", searchRarePhrase},
    {"search by sender", searchSender},
    {"page 500 deep (offset 100000)", pageDeep},
    {"smart folder count broad", countBroad},
    {"smart folder count nested with full text", countNested},
    {"open one message (decompress + parse)", openMessage},
    {"attachment lookup across the archive", findAttachments},
};
constexpr std::size_t kLabelWidth = 52;

void timeOperations(const Subject& subject, std::ostream& out) {
  out << "Operations (best of " << kTries << "):\n";
  for (const Operation& operation : kOperations) {
    std::string result;
    double best = 0;
    for (int i = 0; i < kTries; ++i) {
      const double elapsed = millisecondsOf([&] { result = operation.run(subject); });
      best = i == 0 ? elapsed : std::min(best, elapsed);
    }
    out << fmt::format("  {:<{}} {:7.1f} ms   {}\n", operation.label, kLabelWidth, best, result)
        << std::flush;
  }
}

/// Whether opening messages becomes slower the longer it goes on.
void timeRepeatedOpens(MailArchive& archive, std::ostream& out) {
  std::vector<MessageRow> rows;
  archive.catalog().database().forEachRow(
      "SELECT * FROM message WHERE erased = 0 AND id % MAX(1, (SELECT MAX(id) / ?1 FROM message)) "
      "= 0 LIMIT ?1",
      {kMessagesPerRound}, [&rows](const Row& row) {
        rows.emplace_back(row);
        return true;
      });
  std::vector<double> rounds(kRounds);
  for (double& round : rounds) {
    round = millisecondsOf([&] {
      for (const MessageRow& row : rows) open(archive, row);
    });
  }
  const auto mean = [](auto first, auto last) {
    double sum = 0;
    for (auto it = first; it != last; ++it) sum += *it;
    return sum / static_cast<double>(last - first);
  };
  out << fmt::format("Repeated opens: first {} rounds {:.2f} ms each, last {} {:.2f} ms each\n",
                     kComparedRounds, mean(rounds.begin(), rounds.begin() + kComparedRounds),
                     kComparedRounds, mean(rounds.end() - kComparedRounds, rounds.end()));
}

std::int64_t peakResidentBytes() {
  struct rusage usage {};
  ::getrusage(RUSAGE_SELF, &usage);
#ifdef __APPLE__
  return usage.ru_maxrss;  // bytes there, kibibytes elsewhere
#else
  return usage.ru_maxrss * 1024;
#endif
}

}  // namespace

int bench(const Arguments& arguments, Console& console) {
  if (arguments.positional.empty()) throw CLIError::usage(kUsage);
  const std::int64_t messages = countOption(arguments, "messages", kDefaultMessages);
  const std::int64_t accounts = countOption(arguments, "accounts", kDefaultAccounts);
  const auto archive = openOrCreate(arguments, console);
  std::ostream& out = console.out;

  const bool isFilled = archive->catalog().stats().messages >= messages;
  if (!isFilled) requireOnlySyntheticMail(*archive);
  out << fmt::format("{} {} messages across {} account(s)…\n",
                     isFilled ? "Reusing" : "Generating and ingesting", messages, accounts)
      << std::flush;
  if (!isFilled) {
    Filling filling;
    const double elapsed =
        millisecondsOf([&] { filling = fill(*archive, messages, accounts, console); });
    reportFilling(filling, elapsed / 1000.0, out);
    if (filling.cancelled) {
      console.err << "Interrupted: what was made so far is in the archive.\n";
      archive->close();
      return kExitInterrupted;
    }
  }
  reportSizes(*archive, out);
  timeOperations(subjectOf(*archive), out);
  timeRepeatedOpens(*archive, out);
  out << "Peak resident memory: " << humanBytes(peakResidentBytes()) << "\n";
  archive->close();
  return kExitSuccess;
}

}  // namespace ambervane
