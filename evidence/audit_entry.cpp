#include "evidence/audit_entry.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <utility>

#include "base/digest.h"
#include "base/json.h"
#include "base/text.h"

namespace ambervane {
namespace {

struct ActionRow {
  AuditAction action;
  std::string_view name;
};

constexpr std::array kActions = {
    ActionRow{AuditAction::archiveCreated, "archive.created"},
    ActionRow{AuditAction::policyChanged, "policy.changed"},
    ActionRow{AuditAction::messageIngested, "message.ingested"},
    ActionRow{AuditAction::messageDuplicate, "message.duplicate"},
    ActionRow{AuditAction::packSealed, "pack.sealed"},
    ActionRow{AuditAction::searchPerformed, "search.performed"},
    ActionRow{AuditAction::messageRead, "message.read"},
    ActionRow{AuditAction::messageExported, "message.exported"},
    ActionRow{AuditAction::messageErased, "message.erased"},
    ActionRow{AuditAction::retentionApplied, "retention.applied"},
    ActionRow{AuditAction::tagApplied, "tag.applied"},
    ActionRow{AuditAction::tagRemoved, "tag.removed"},
    ActionRow{AuditAction::tagDeleted, "tag.deleted"},
    ActionRow{AuditAction::noteAdded, "note.added"},
    ActionRow{AuditAction::noteEdited, "note.edited"},
    ActionRow{AuditAction::noteRemoved, "note.removed"},
    ActionRow{AuditAction::mailboxMembershipChanged, "mailbox.membership"},
    ActionRow{AuditAction::smartFolderSaved, "smartfolder.saved"},
    ActionRow{AuditAction::smartFolderDeleted, "smartfolder.deleted"},
    ActionRow{AuditAction::legalHoldPlaced, "hold.placed"},
    ActionRow{AuditAction::legalHoldReleased, "hold.released"},
    ActionRow{AuditAction::integrityVerified, "integrity.verified"},
    ActionRow{AuditAction::integrityFailed, "integrity.failed"},
    ActionRow{AuditAction::chainSealed, "chain.sealed"},
    ActionRow{AuditAction::scheduledSync, "sync.scheduled"},
    ActionRow{AuditAction::syncIncomplete, "sync.incomplete"},
    ActionRow{AuditAction::syncStarted, "sync.started"},
    ActionRow{AuditAction::syncFinished, "sync.finished"},
    ActionRow{AuditAction::importStarted, "import.started"},
    ActionRow{AuditAction::importFinished, "import.finished"},
};

constexpr auto kActionOrder = [] {
  std::array<AuditAction, kActions.size()> order{};
  std::ranges::transform(kActions, order.begin(), &ActionRow::action);
  return order;
}();

constexpr bool rowsStandInOrder() {
  for (std::size_t i = 0; i < kActions.size(); ++i) {
    if (static_cast<std::size_t>(kActions[i].action) != i) return false;
  }
  return kActions.back().action == AuditAction::importFinished;
}
static_assert(rowsStandInOrder(), "an action is the index of its row");

/// Backslash, line feed and "=" would let a value pass for another line of the payload.
void appendEscaped(std::string& out, std::string_view text) {
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
}

void appendPayload(std::string& out, const AuditEntry& entry) {
  // A line gives a negative zero back without its sign, so the sum takes the sign away here too.
  const double timestamp = entry.timestamp.seconds + 0.0;
  fmt::format_to(std::back_inserter(out), "seq={}\nts={:.6f}\naction={}\nactor=", entry.seq,
                 timestamp, auditActionName(entry.action));
  appendEscaped(out, entry.actor);
  out += "\nsubject=";
  if (entry.subject) appendEscaped(out, *entry.subject);
  for (const auto& [key, value] : entry.details) {
    out += "\nd.";
    appendEscaped(out, key);
    out.push_back('=');
    appendEscaped(out, value);
  }
  out += "\nprev=";
  out += entry.previousHash;
}

/// Takes the fields of an entry out of the parser's events, without building a document first:
/// verification reads millions of lines. Every event returns whether to go on.
class EntryReader final : public nlohmann::json_sax<nlohmann::json> {
 public:
  std::optional<AuditEntry> take() {
    constexpr unsigned kRequired =
        kSeq | kTimestamp | kAction | kActor | kDetails | kPreviousHash | kEntryHash;
    if ((seen_ & kRequired) != kRequired) return std::nullopt;
    return std::move(entry_);
  }

  // The names below are the parser's.
  // NOLINTBEGIN(readability-identifier-naming)
  bool null() override { return ignoring() || field_ == kSubject; }
  bool boolean(bool) override { return ignoring(); }
  bool number_integer(std::int64_t value) override { return number(value); }
  bool number_unsigned(std::uint64_t value) override {
    if (value > std::uint64_t{std::numeric_limits<std::int64_t>::max()}) {
      return number_float(static_cast<double>(value), {});
    }
    return number(static_cast<std::int64_t>(value));
  }
  bool number_float(double value, const std::string&) override {
    if (field_ == kTimestamp && depth_ == 1) {
      entry_.timestamp.seconds = value;
      return true;
    }
    return ignoring();
  }
  bool string(std::string& value) override;
  bool binary(nlohmann::json::binary_t&) override { return false; }
  bool start_object(std::size_t) override {
    const bool allowed = depth_ == 0 || ignoring() || (depth_ == 1 && field_ == kDetails);
    ++depth_;
    return allowed;
  }
  bool end_object() override {
    --depth_;
    return true;
  }
  bool start_array(std::size_t) override {
    const bool allowed = depth_ > 0 && ignoring();
    ++depth_;
    return allowed;
  }
  bool end_array() override { return end_object(); }
  bool key(std::string& name) override;
  bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception&) override {
    return false;
  }
  // NOLINTEND(readability-identifier-naming)

 private:
  enum Field : unsigned {
    kUnknown = 0,
    kSeq = 1,
    kTimestamp = 2,
    kAction = 4,
    kActor = 8,
    kSubject = 16,
    kDetails = 32,
    kPreviousHash = 64,
    kEntryHash = 128,
  };
  static Field fieldNamed(std::string_view name);

  /// Whether what comes belongs to a key of the entry that we do not know.
  bool ignoring() const noexcept { return depth_ > 0 && field_ == kUnknown; }
  bool number(std::int64_t value) {
    if (depth_ != 1) return ignoring();
    if (field_ == kSeq) {
      entry_.seq = value;
      return true;
    }
    return number_float(static_cast<double>(value), {});
  }

  AuditEntry entry_;
  std::string detailKey_;
  std::size_t depth_ = 0;  ///< open objects and arrays
  unsigned seen_ = 0;
  Field field_ = kUnknown;  ///< the entry's key read last
};

EntryReader::Field EntryReader::fieldNamed(std::string_view name) {
  static constexpr std::pair<std::string_view, Field> kFields[] = {{"action", kAction},
                                                                   {"actor", kActor},
                                                                   {"details", kDetails},
                                                                   {"entryHash", kEntryHash},
                                                                   {"previousHash", kPreviousHash},
                                                                   {"seq", kSeq},
                                                                   {"subject", kSubject},
                                                                   {"timestamp", kTimestamp}};
  for (const auto& [known, field] : kFields) {
    if (name == known) return field;
  }
  return kUnknown;
}

bool EntryReader::key(std::string& name) {
  if (depth_ == 1) {
    field_ = fieldNamed(name);
    // A key that comes twice would be read one way here and another way elsewhere.
    if ((seen_ & field_) != 0) return false;
    seen_ |= field_;
    return true;
  }
  if (ignoring()) return true;
  detailKey_ = name;
  return !entry_.details.contains(detailKey_);
}

bool EntryReader::string(std::string& value) {
  if (depth_ == 2 && field_ == kDetails) {
    entry_.details.emplace(std::move(detailKey_), std::move(value));
    return true;
  }
  switch (field_) {
    case kAction:
      if (const auto action = auditActionFromName(value)) {
        entry_.action = *action;
        return true;
      }
      return false;
    case kActor:
      entry_.actor = std::move(value);
      return true;
    case kSubject:
      entry_.subject = std::move(value);
      return true;
    case kPreviousHash:
      entry_.previousHash = std::move(value);
      return true;
    case kEntryHash:
      entry_.entryHash = std::move(value);
      return true;
    default:
      return ignoring();
  }
}

}  // namespace

std::span<const AuditAction> allAuditActions() noexcept { return kActionOrder; }

std::string_view auditActionName(AuditAction action) noexcept {
  return kActions[static_cast<std::size_t>(action)].name;
}

std::optional<AuditAction> auditActionFromName(std::string_view name) noexcept {
  const auto* const row = std::ranges::find(kActions, name, &ActionRow::name);
  if (row == kActions.end()) return std::nullopt;
  return row->action;
}

bool isCritical(AuditAction action) noexcept {
  return action != AuditAction::searchPerformed && action != AuditAction::messageRead;
}

const std::string& genesisHash() {
  static const std::string kHash(64, '0');
  return kHash;
}

std::string canonicalPayload(const AuditEntry& entry) {
  std::string payload;
  appendPayload(payload, entry);
  return payload;
}

std::string computeEntryHash(const AuditEntry& entry) {
  std::string hashed = entry.previousHash;
  appendPayload(hashed, entry);
  return sha256Hex(hashed);
}

std::string encodeAuditEntry(const AuditEntry& entry) {
  constexpr bool kEscapeSlash = true;
  std::string details;
  for (const auto& [key, value] : entry.details) {
    if (!details.empty()) details.push_back(',');
    details += jsonString(key, kEscapeSlash) + ':' + jsonString(value, kEscapeSlash);
  }
  return fmt::format(
      R"({{"action":{},"actor":{},"details":{{{}}},"entryHash":{},"previousHash":{},"seq":{})"
      R"({}{},"timestamp":{}}})",
      jsonString(auditActionName(entry.action), kEscapeSlash),
      jsonString(entry.actor, kEscapeSlash), details, jsonString(entry.entryHash, kEscapeSlash),
      jsonString(entry.previousHash, kEscapeSlash), entry.seq,
      entry.subject ? R"(,"subject":)" : "",
      entry.subject ? jsonString(*entry.subject, kEscapeSlash) : "",
      decimalNumber(entry.timestamp.seconds));
}

std::optional<AuditEntry> decodeAuditEntry(std::string_view line) {
  // The parser takes a NUL byte for the end of its input; disks leave runs of them after a crash.
  if (line.find('\0') != std::string_view::npos) return std::nullopt;
  EntryReader reader;
  if (!readJsonEvents(line, reader)) return std::nullopt;
  return reader.take();
}

}  // namespace ambervane
