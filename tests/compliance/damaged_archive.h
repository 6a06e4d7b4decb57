#ifndef AMBERVANE_TESTS_COMPLIANCE_DAMAGED_ARCHIVE_H_
#define AMBERVANE_TESTS_COMPLIANCE_DAMAGED_ARCHIVE_H_

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "base/text.h"
#include "compliance/verification.h"
#include "platform/immutable_flag.h"
#include "store/sqlite_database.h"
#include "tests/support/mail_builder.h"
#include "tests/support/test_archive.h"

namespace ambervane {

/// Puts the bytes of a file through `change`, whatever protects it.
inline void rewrite(const std::filesystem::path& path, const std::function<void(Bytes&)>& change) {
  Bytes bytes = readFile(path);
  change(bytes);
  clearImmutable(path);
  std::filesystem::remove(path);
  writeFileAtomically(path, bytes);
}

inline void flip(const std::filesystem::path& path, std::size_t offset) {
  rewrite(path,
          [offset](Bytes& bytes) { bytes.at(offset) = static_cast<char>(bytes[offset] ^ 1); });
}

/// Replaces the first `from`; where `to` is empty the digit behind `from` becomes another.
inline void edit(Bytes& bytes, const std::string& from, const std::string& to) {
  const std::size_t at = bytes.find(from);
  if (at == Bytes::npos) throw std::logic_error("nothing to edit: " + from);
  if (!to.empty()) {
    bytes.replace(at, from.size(), to);
  } else {
    char& digit = bytes.at(at + from.size());
    digit = digit == '1' ? '2' : '1';
  }
}

/// Puts line `number` of a file, counted from 1, through `change`; an empty result removes it.
inline void rewriteLine(const std::filesystem::path& path, std::size_t number,
                        const std::function<void(Bytes&)>& change) {
  rewrite(path, [&](Bytes& bytes) {
    Bytes text;
    for (const std::string_view line : splitOmittingEmpty(bytes, "\n")) {
      Bytes changed(line);
      if (--number == 0) change(changed);
      if (!changed.empty()) text += changed + "\n";
    }
    bytes = text;
  });
}

/// An archive of four messages in two packs, the first of them sealed, and three seals. Messages 2
/// and 3 share an attachment. A sealed pack is write-protected only where the policy says so.
class DamagedArchive : public TestArchive {
 public:
  static RetentionPolicy policyFor(std::set<ComplianceRegime> regimes) {
    RetentionPolicy policy(std::move(regimes));
    policy.wormEnforcement = false;
    return policy;
  }

  explicit DamagedArchive(const RetentionPolicy& policy,
                          CompressionEffort effort = CompressionEffort::balanced)
      : TestArchive(policy, effort) {
    close();
    rewrite(path() / "archive.json", [](Bytes& bytes) { edit(bytes, "1073741824", "9000"); });
    reopen();
    const Bytes shared = noise(6000);
    ingest({plainMail(1), mailWithFiles(2, {{"a.bin", shared}})});
    ingest({mailWithFiles(3, {{"b.bin", noise(6000, 7)}, {"a.bin", shared}}), plainMail(4)});
  }

  explicit DamagedArchive(const CopyOf& copy) : TestArchive(copy) {}

  std::filesystem::path pack(int number) const {
    return path() / "packs" / PackStore::packName(number);
  }
  std::filesystem::path journal() const { return path() / "chain/journal.jsonl"; }
  std::filesystem::path seal(int number) const {
    return path() / "chain/seals" / ("0000000" + std::to_string(number) + ".seal.json");
  }
  /// Runs SQL on a database of the closed archive.
  void sql(const std::string& statements, const char* database = "catalog.sqlite") const {
    SQLiteDatabase(path() / database, SQLiteDatabase::Mode::readWrite, "test").execute(statements);
  }
  /// Flips a bit of the record of message `id`, `offset` bytes behind its start.
  void flipRecord(int id, std::size_t offset) const {
    SQLiteDatabase db(path() / "catalog.sqlite", SQLiteDatabase::Mode::readWrite, "test");
    const Row row = db.query("SELECT pack_id, pack_offset FROM message WHERE id = ?", {id}).front();
    flip(pack(static_cast<int>(row.integer("pack_id"))),
         static_cast<std::size_t>(row.integer("pack_offset")) + offset);
  }

  ComplianceReport verify(bool deep) {
    VerificationOptions options;
    options.deep = deep;
    options.damagedMessage = [this](const DamagedMessage& m) { reasons.push_back(m.reason); };
    return verifyIntegrity(**this, options).value();
  }
  std::vector<std::string> reasons;  ///< why messages could not be rebuilt
};

/// "name: detail" of each check with that outcome.
inline std::vector<std::string> said(const ComplianceReport& report, Outcome outcome) {
  std::vector<std::string> texts;
  for (const ComplianceCheck& check : report.checks) {
    if (check.outcome == outcome) texts.push_back(check.name + ": " + check.detail());
  }
  return texts;
}

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_COMPLIANCE_DAMAGED_ARCHIVE_H_
