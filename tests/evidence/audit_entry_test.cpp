#include "evidence/audit_entry.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ambervane {
namespace {

// Payloads, hashes and lines made outside this program, with Python's hashlib and json. They are
// the format: should one of these tests fail, no journal written before can be verified any more.
constexpr const char* kFirstHash =
    "decfbfdaaca37ea7f2fdf1b03464e3431f4ec06ff744f8371884e7c7d472485f";
constexpr const char* kFirstLine =
    R"({"action":"archive.created","actor":"anna@buero","details":{},)"
    R"("entryHash":"decfbfdaaca37ea7f2fdf1b03464e3431f4ec06ff744f8371884e7c7d472485f",)"
    R"("previousHash":"0000000000000000000000000000000000000000000000000000000000000000",)"
    R"("seq":1,"timestamp":1772360130.25})";

AuditEntry firstEntry() {
  AuditEntry entry;
  entry.seq = 1;
  entry.timestamp = {1772360130.25};
  entry.action = AuditAction::archiveCreated;
  entry.actor = "anna@buero";
  entry.previousHash = genesisHash();
  entry.entryHash = kFirstHash;
  return entry;
}

AuditEntry secondEntry() {
  AuditEntry entry;
  entry.seq = 2;
  entry.timestamp = {1772360131.0000005};
  entry.action = AuditAction::messageIngested;
  entry.actor = "Zoë/Q";
  entry.subject = "a=b\nc\\d";
  entry.details = {{"k=1\nprev", "v=2\nprev=0"}, {"folder", "INBOX/\"x\"\t"}};
  entry.previousHash = kFirstHash;
  entry.entryHash = "f87889ff35d161c7b133abf869a53d591e9770259733e3fae110917fe12ff428";
  return entry;
}

TEST(AuditEntry, literalBytes) {
  const struct {
    const char* name;
    AuditEntry entry;
    const char* payload;
    const char* line;
  } kCases[] = {
      {"plain", firstEntry(),
       "seq=1\nts=1772360130.250000\naction=archive.created\nactor=anna@buero\nsubject=\n"
       "prev=0000000000000000000000000000000000000000000000000000000000000000",
       kFirstLine},
      {"escapes", secondEntry(),
       "seq=2\nts=1772360131.000000\naction=message.ingested\nactor=Zoë/Q\n"
       "subject=a\\u003db\\nc\\\\d\nd.folder=INBOX/\"x\"\t\n"
       "d.k\\u003d1\\nprev=v\\u003d2\\nprev\\u003d0\n"
       "prev=decfbfdaaca37ea7f2fdf1b03464e3431f4ec06ff744f8371884e7c7d472485f",
       R"({"action":"message.ingested","actor":"Zoë\/Q",)"
       R"("details":{"folder":"INBOX\/\"x\"\t","k=1\nprev":"v=2\nprev=0"},)"
       R"("entryHash":"f87889ff35d161c7b133abf869a53d591e9770259733e3fae110917fe12ff428",)"
       R"("previousHash":"decfbfdaaca37ea7f2fdf1b03464e3431f4ec06ff744f8371884e7c7d472485f",)"
       R"("seq":2,"subject":"a=b\nc\\d","timestamp":1772360131.0000005})"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(canonicalPayload(c.entry), c.payload);
    EXPECT_EQ(computeEntryHash(c.entry), c.entry.entryHash);
    EXPECT_EQ(encodeAuditEntry(c.entry), c.line);
    EXPECT_EQ(decodeAuditEntry(c.line), c.entry);
  }
}

TEST(AuditEntry, absentSubjectHashesAsEmpty) {
  AuditEntry entry = firstEntry();
  entry.subject = "";
  EXPECT_EQ(computeEntryHash(entry), kFirstHash);
  EXPECT_NE(encodeAuditEntry(entry), kFirstLine);
}

TEST(AuditAction, recordedStrings) {
  std::string names;
  std::string routine;
  for (const AuditAction action : allAuditActions()) {
    const std::string name(auditActionName(action));
    EXPECT_EQ(auditActionFromName(name), action) << name;
    names += name + " ";
    if (!isCritical(action)) routine += name + " ";
  }
  EXPECT_EQ(names,
            "archive.created policy.changed message.ingested message.duplicate pack.sealed "
            "search.performed message.read message.exported message.erased retention.applied "
            "tag.applied tag.removed tag.deleted note.added note.edited note.removed "
            "mailbox.membership smartfolder.saved smartfolder.deleted hold.placed hold.released "
            "integrity.verified integrity.failed chain.sealed sync.scheduled sync.incomplete "
            "sync.started sync.finished import.started import.finished ");
  EXPECT_EQ(routine, "search.performed message.read ");
}

TEST(DecodeAuditEntry, acceptsOnlyEntries) {
  const std::string nested = std::string(100'000, '[') + std::string(100'000, ']');
  const struct {
    const char* name;
    std::string from, to;  ///< put into the first line
    bool accepted;
  } kCases[] = {
      {"otherOrderAndBlanks", R"({"action":"archive.created","actor":"anna@buero",)",
       R"({ "actor" : "anna@buero", "action":"archive.created",)", true},
      {"wholeNumberTime", "1772360130.25", "1772360130", true},
      {"nullSubject", R"("seq")", R"("subject":null,"seq")", true},
      {"deepUnknownKey", R"("seq")", R"("later":)" + nested + R"(,"seq")", true},
      {"seqTooLarge", R"("seq":1)", R"("seq":9223372036854775808)", false},
      {"seqTwice", R"("seq":1)", R"("seq":2,"seq":1)", false},
      {"timeEndless", "1772360130.25", "1e999", false},
      {"actionUnknown", "archive.created", "archive.invented", false},
      {"actorMissing", R"("actor":"anna@buero",)", "", false},
      {"subjectNumber", R"("seq")", R"("subject":1,"seq")", false},
      {"detailNumber", R"("details":{})", R"("details":{"a":1})", false},
      {"detailTwice", R"("details":{})", R"("details":{"a":"1","a":"2"})", false},
      {"linkMissing", R"("previousHash")", R"("previoushash")", false},
      {"illFormedText", "anna", "ann\xff", false},
      {"textBehind", "130.25}", "130.25}}", false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    std::string line = kFirstLine;
    ASSERT_NE(line.find(c.from), std::string::npos);
    line.replace(line.find(c.from), c.from.size(), c.to);
    EXPECT_EQ(decodeAuditEntry(line).has_value(), c.accepted);
  }
  for (const char* other : {"null", "7", "\"text\"", "[]", "{}", "[[[", "tru"}) {
    EXPECT_FALSE(decodeAuditEntry(other)) << other;
  }
}

}  // namespace
}  // namespace ambervane
