#include "tests/faults/evidence.h"

#include <fmt/format.h>

#include <algorithm>
#include <regex>
#include <utility>

#include "base/digest.h"
#include "base/file.h"
#include "base/json.h"
#include "base/text.h"
#include "store/mail_archive.h"
#include "store/message_reader.h"
#include "store/sqlite_database.h"

namespace ambervane {
namespace {

namespace fs = std::filesystem;

/// What stands in the catalog apart from identifiers and times of today.
constexpr const char* kFacts[] = {
    "SELECT 'message ' || sha256 || ' ' || retention_class || ' ' || COALESCE(expires_at, 0) || "
    "' ' || erased || ' ' || subject || ' ' || size || ' ' || attachment_count FROM message",
    "SELECT 'mailbox ' || m.sha256 || ' ' || a.name || '/' || f.path || ' ' || COUNT(*) FROM "
    "message_folder mf JOIN message m ON m.id = mf.message_id JOIN folder f ON f.id = "
    "mf.folder_id JOIN account a ON a.id = f.account_id GROUP BY mf.message_id, mf.folder_id",
    "SELECT 'attachment ' || m.sha256 || ' ' || COUNT(*) FROM attachment a JOIN message m ON m.id "
    "= a.message_id GROUP BY m.id",
    "SELECT 'header ' || m.sha256 || ' ' || COUNT(*) FROM message_header h JOIN message m ON m.id "
    "= h.message_id GROUP BY m.id",
    "SELECT 'blob ' || hash || ' ' || refcount FROM blob",
    "SELECT 'tag ' || t.name || ' ' || m.sha256 FROM message_tag mt JOIN tag t ON t.id = "
    "mt.tag_id JOIN message m ON m.id = mt.message_id",
    "SELECT 'hold ' || COUNT(*) || ' ' || (released_at IS NULL) FROM hold GROUP BY released_at IS "
    "NULL",
    "SELECT 'held ' || m.sha256 || ' ' || COUNT(*) FROM message_hold h JOIN message m ON m.id = "
    "h.message_id JOIN hold ON hold.id = h.hold_id WHERE released_at IS NULL GROUP BY m.id",
    "SELECT 'smart ' || name || ' ' || COUNT(*) FROM smart_folder GROUP BY name",
    "SELECT 'indexed ' || COUNT(*) FROM message_fts",
};

std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '=':
        out += "\\u003d";
        break;
      default:
        out.push_back(c);
    }
  }
  return out;
}

std::string hashOf(const nlohmann::json& entry) {
  const std::string previous = entry.at("previousHash");
  std::string payload = fmt::format(
      "seq={}\nts={:.6f}\naction={}\nactor={}\nsubject={}\n", entry.at("seq").get<std::int64_t>(),
      entry.at("timestamp").get<double>(), entry.at("action").get<std::string>(),
      escaped(entry.at("actor")), escaped(entry.value("subject", "")));
  for (const auto& [key, value] : entry.at("details").items()) {
    payload += "d." + escaped(key) + "=" + escaped(value) + "\n";
  }
  return sha256Hex(previous + payload + "prev=" + previous);
}

}  // namespace

Holdings readHoldings(const fs::path& archive) {
  Holdings holdings;
  const auto catalog = SQLiteDatabase::reading(archive / "catalog.sqlite", "judge", false);
  for (const Row& row : catalog->query("SELECT sha256, erased FROM message")) {
    holdings.messages.insert(row.string("sha256"));
    if (row.boolean("erased")) holdings.erased.insert(row.string("sha256"));
  }
  for (const char* sql : kFacts) {
    for (const Row& row : catalog->query(sql)) {
      holdings.facts.insert(std::get<std::string>(row.values().front()));
    }
  }
  const fs::path keys = archive / "keys" / "content-keys.sqlite";
  if (!fs::exists(keys)) return holdings;
  const auto database = SQLiteDatabase::reading(keys, "judge", false);
  if (!database->hasTable("blob_key")) return holdings;
  for (const Row& row : database->query("SELECT hash AS owner, wrapped FROM blob_key UNION ALL "
                                        "SELECT message_id, wrapped FROM content_key")) {
    holdings.keys[row.string("owner")] = row.blob("wrapped").value_or("");
  }
  return holdings;
}

Problems judgeMessages(const fs::path& path) {
  Problems problems;
  MailArchive archive(path, OpenMode::readOnly);
  for (const Row& each : archive.catalog().database().query("SELECT * FROM message")) {
    const MessageRow row(each);
    try {
      const Bytes raw = rawMessage(archive, row);
      if (row.erased) problems.push_back("erased and can be read: " + row.sha256);
      if (sha256Hex(raw) != row.sha256) problems.push_back("another message: " + row.sha256);
    } catch (const TranslatableError& error) {
      if (!row.erased) problems.push_back("lost: " + row.sha256 + ": " + error.what());
    }
  }
  archive.close();
  return problems;
}

Problems judgeChain(const fs::path& archive, bool mayBeTorn) {
  Problems problems;
  std::string head(64, '0');
  std::int64_t expected = 1;
  bool isTorn = false;
  const Bytes journal = readFileIfPossible(archive / "chain" / "journal.jsonl").value_or("");
  for (const std::string_view line : splitOmittingEmpty(journal, "\n")) {
    const auto entry = nlohmann::json::parse(line, nullptr, false);
    if (!entry.is_object() || !entry.contains("entryHash")) {
      if (!mayBeTorn) problems.push_back("no entry behind " + std::to_string(expected - 1));
      isTorn = true;
      continue;
    }
    // What was torn may have been several entries, with others behind them that were kept.
    if (std::exchange(isTorn, false) && entry.at("previousHash") != head) {
      expected = entry.at("seq");
      head = entry.at("previousHash");
    }
    if (entry.at("seq") != expected || entry.at("previousHash") != head ||
        entry.at("entryHash") != hashOf(entry)) {
      problems.push_back("the chain breaks at " + std::to_string(expected));
      return problems;
    }
    head = entry.at("entryHash");
    ++expected;
  }
  return problems;
}

std::map<std::string, Bytes> readHistory(const fs::path& archive) {
  std::map<std::string, Bytes> files;
  for (const char* folder : {"packs", "chain", "chain/seals", "dict"}) {
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(archive / folder, none)) {
      if (!entry.is_regular_file()) continue;
      files[entry.path().lexically_relative(archive)] = readFile(entry.path());
    }
  }
  return files;
}

Problems judgeHistory(const std::map<std::string, Bytes>& before,
                      const std::map<std::string, Bytes>& after) {
  Problems problems;
  for (const auto& [name, bytes] : before) {
    const auto now = after.find(name);
    if (now == after.end()) {
      problems.push_back("gone: " + name);
    } else if (!now->second.starts_with(bytes)) {
      problems.push_back("rewritten: " + name);
    }
  }
  return problems;
}

std::set<std::string> failedChecks(const std::string& report) {
  static const std::regex kFailed(R"(\[FAIL\] ([^:]+):)");
  std::set<std::string> names;
  for (std::sregex_iterator it(report.begin(), report.end(), kFailed), end; it != end; ++it) {
    names.insert((*it)[1]);
  }
  return names;
}

Problems judgeTidiness(const fs::path& archive) {
  static const std::regex kKnown(
      R"((archive\.json|FORMAT\.md|lock|catalog\.sqlite(\.broken-[^/]+?)?(-wal|-shm)?|dict/[^/]+)"
      R"(|chain/imported/[^/]+/(chain-head\.txt|archive\.json|chain/.+))"
      R"(|packs/\d{8}\.(pack|idx)|chain/journal\.jsonl|chain/seals/\d{8}\.seal\.json)"
      R"(|keys/(master\.key|seal\.key|content-keys\.sqlite(-wal|-shm)?)))");
  Problems problems;
  for (const auto& entry : fs::recursive_directory_iterator(archive)) {
    if (!entry.is_regular_file()) continue;
    const std::string name = entry.path().lexically_relative(archive);
    if (!std::regex_match(name, kKnown) || name.find(".tmp-") != std::string::npos) {
      problems.push_back("left behind: " + name);
    }
  }
  return problems;
}

}  // namespace ambervane
