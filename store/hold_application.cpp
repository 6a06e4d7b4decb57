// A hold looks for parts of words anywhere in a message, which no index of words can answer. The
// catalog therefore only narrows: folder, date and, from the indexed header, people; what is left
// is read from the packs when the hold names words of the text.

#include "store/hold_application.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "base/text.h"
#include "mailcore/parsed_message.h"
#include "store/attachment_index_text.h"
#include "store/catalog_holds.h"
#include "store/header_index.h"
#include "store/message_reader.h"

namespace ambervane {
namespace {

using OptionalText = std::optional<std::string>;

std::string textOf(const std::string& subject, const std::string& body) {
  return subject + "\n" + body;
}

/// A message of the archive, read from its pack at most once.
class ArchivedMessage {
 public:
  ArchivedMessage(MailArchive& archive, const MessageRow& row) : archive_(archive), row_(row) {}

  HoldSubject subject() {
    std::vector<std::string> folders;
    for (Membership& filed : archive_.catalog().memberships(row_.id)) {
      folders.push_back(std::move(filed.folder));
    }
    return HoldSubject({.hash = row_.sha256,
                        .folders = std::move(folders),
                        .date = row_.sentAt,
                        .participants = [this] { return people(); },
                        .text = [this] { return text(); }});
  }
  bool isUnreadable() const noexcept { return isUnreadable_; }

 private:
  OptionalText people() {
    if (auto indexed = indexedPeople()) return indexed;
    const auto parsed = read();
    if (!parsed) return std::nullopt;
    return peopleOf(parsed->headers(), row_.participants);
  }

  /// From the header index; absent where that may have left something out.
  OptionalText indexedPeople() {
    if (!archive_.catalog().supportsHeaderIndex()) return std::nullopt;
    std::string people = row_.participants;
    std::size_t rows = 0;
    bool isWhole = true;
    archive_.catalog().database().forEachRow(
        "SELECT name, value FROM message_header WHERE message_id = ?", {row_.id},
        [&](const Row& row) {
          ++rows;
          if (std::ranges::find(kPeopleFields, row.string("name")) == kPeopleFields.end()) {
            return true;
          }
          const std::string value = row.string("value");
          isWhole = isWhole && characterCount(value) < kMaximumHeaderValueLength;
          people += ' ' + value;
          return true;
        });
    if (rows == 0 || rows >= kMaximumRepeatsOfAHeader || !isWhole) return std::nullopt;
    return people;
  }

  OptionalText text() {
    const auto parsed = read();
    if (!parsed) return std::nullopt;
    const std::string body = parsed->allTextForIndexing();
    return textOf(row_.subject, std::string(prefixCharacters(body, kMaxIndexedCharacters)));
  }

  std::unique_ptr<ParsedMessage> read() {
    try {
      if (raw_.empty()) raw_ = rawMessage(archive_, row_);
      return std::make_unique<ParsedMessage>(raw_);
    } catch (const TranslatableError&) {
      isUnreadable_ = true;
      return nullptr;
    }
  }

  MailArchive& archive_;
  const MessageRow& row_;
  Bytes raw_;
  bool isUnreadable_ = false;
};

}  // namespace

void applyMatchingHolds(MailArchive& archive, std::int64_t messageID,
                        const PreparedMessage& message, const std::string& folder) {
  CatalogHolds catalog(archive.catalog());
  const auto holds = catalog.holds(true);
  if (holds.empty()) return;
  HoldSubject subject({.hash = message.hash,
                       .folders = {folder},
                       .date = message.envelope.sentAt,
                       .participants = [&message] { return OptionalText(message.people); },
                       .text = [&message]() -> OptionalText {
                         return textOf(message.indexed.subject, message.indexed.body);
                       }});
  for (const LegalHold& hold : holds) {
    if (subject.matches(hold.criteria)) catalog.link(messageID, hold.id);
  }
}

void applyMatchingHolds(MailArchive& archive, const MessageRow& row) {
  CatalogHolds catalog(archive.catalog());
  const auto holds = catalog.holds(true);
  if (holds.empty() || row.erased) return;
  ArchivedMessage message(archive, row);
  HoldSubject subject = message.subject();
  for (const LegalHold& hold : holds) {
    if (subject.matches(hold.criteria)) catalog.link(row.id, hold.id);
  }
}

HoldCoverage reapplyHold(MailArchive& archive, const LegalHold& hold) {
  CatalogHolds catalog(archive.catalog());
  HoldCoverage coverage;
  archive.catalog().database().forEachRow("SELECT * FROM message WHERE erased = 0 ORDER BY id", {},
                                          [&](const Row& columns) {
                                            const MessageRow row(columns);
                                            ArchivedMessage message(archive, row);
                                            if (message.subject().matches(hold.criteria)) {
                                              catalog.link(row.id, hold.id);
                                              if (message.isUnreadable()) ++coverage.unreadable;
                                            }
                                            return true;
                                          });
  coverage.messages = catalog.messagesUnder(hold.id);
  return coverage;
}

std::map<std::string, std::string> holdDetails(const LegalHold& hold) {
  std::map<std::string, std::string> details = {
      {"name", hold.name}, {"custodian", hold.custodian}, {"reason", hold.reason}};
  if (const std::string summary = hold.criteria.summary(); !summary.empty()) {
    details["criteria"] = summary;
    details["definition"] = holdCriteriaJson(hold.criteria);
  }
  return details;
}

}  // namespace ambervane
