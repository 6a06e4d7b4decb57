#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "imapkit/command_line.h"
#include "imapkit/imap_client.h"
#include "imapkit/modified_utf7.h"
#include "imapkit/sequence_set.h"

namespace ambervane {
namespace {

/// A server without ESEARCH names every UID on one line. Beyond so many messages it is asked in
/// parts, so that no line reaches the limit of the reader.
constexpr std::int64_t kSearchedAtOnce = 50000;

void readNumber(const IMAPResponse& response, std::string_view name, std::int64_t& into) {
  if (const auto text = response.responseCodeValue(name)) into = parseInteger(*text).value_or(0);
}

void readSelectResponse(const IMAPResponse& response, IMAPMailboxStatus& status) {
  if (response.hasAtom(1, "EXISTS")) {
    status.messages = response.tokens[0].intValue().value_or(0);
  } else if (response.hasAtom(1, "RECENT")) {
    status.recent = response.tokens[0].intValue().value_or(0);
  } else if (response.hasAtom(0, "OK")) {
    readNumber(response, "UIDVALIDITY", status.uidValidity);
    readNumber(response, "UIDNEXT", status.uidNext);
    readNumber(response, "UNSEEN", status.unseen);
    if (const auto text = response.responseCodeValue("HIGHESTMODSEQ")) {
      status.highestModSeq = parseInteger(*text);
    }
    if (const auto text = response.responseCodeValue("PERMANENTFLAGS")) {
      const auto flags = splitOmittingEmpty(*text, " ()");
      status.permanentFlags.assign(flags.begin(), flags.end());
    }
  }
}

void readStatusResponse(const IMAPResponse& response, IMAPMailboxStatus& status) {
  if (!response.hasAtom(0, "STATUS") || response.tokens.size() < 3) return;
  const IMAPToken::List* pairs = response.tokens[2].list();
  for (std::size_t i = 0; pairs != nullptr && i + 1 < pairs->size(); i += 2) {
    const IMAPToken& name = (*pairs)[i];
    const auto value = (*pairs)[i + 1].intValue();
    if (name.isAtom("MESSAGES")) status.messages = value.value_or(0);
    if (name.isAtom("RECENT")) status.recent = value.value_or(0);
    if (name.isAtom("UNSEEN")) status.unseen = value.value_or(0);
    if (name.isAtom("UIDNEXT")) status.uidNext = value.value_or(0);
    if (name.isAtom("UIDVALIDITY")) status.uidValidity = value.value_or(0);
    if (name.isAtom("HIGHESTMODSEQ")) status.highestModSeq = value;
  }
}

/// Adds the UIDs of a SEARCH or an ESEARCH response (RFC 4731).
void readSearchResponse(const IMAPResponse& response, std::vector<std::int64_t>& uids) {
  if (response.hasAtom(0, "SEARCH")) {
    for (std::size_t i = 1; i < response.tokens.size(); ++i) {
      const auto uid = response.tokens[i].intValue();
      if (uid && *uid > 0) uids.push_back(*uid);
    }
  } else if (response.hasAtom(0, "ESEARCH")) {
    for (std::size_t i = 1; i + 1 < response.tokens.size(); ++i) {
      if (!response.hasAtom(i, "ALL")) continue;
      const auto found = expandSequenceSet(response.tokens[i + 1].stringValue().value_or(""));
      if (!found || uids.size() > kMaxSequenceNumbers) {
        throw IMAPError(IMAPError::ProtocolViolation{
            "the server announced more data in one response than a mail server sends"});
      }
      uids.insert(uids.end(), found->begin(), found->end());
    }
  }
}

std::string storableFlags(const std::set<MessageFlag>& flags) {
  std::set<MessageFlag> kept = flags;
  kept.erase(MessageFlag::recent);
  kept.erase(MessageFlag::deleted);
  return flagText(kept);
}

}  // namespace

/// The name of a mailbox as it travels.
std::string IMAPClient::wireName(const std::string& path) const {
  const auto known = wireNames_.find(path);
  if (known != wireNames_.end()) return known->second;
  return utf8Names_ ? path : ModifiedUTF7::encode(path);
}

std::string IMAPClient::quotedName(const std::string& path) const {
  return quotedString(wireName(path));
}

std::vector<IMAPFolder> IMAPClient::listFolders(const std::string& reference,
                                                const std::string& pattern) {
  std::vector<IMAPFolder> folders;
  const auto onUntagged = [&](const IMAPResponse& response) {
    if (!response.hasAtom(0, "LIST") || response.tokens.size() < 4) return;
    const auto name = response.tokens[3].stringValue();
    const IMAPToken::List* attributes = response.tokens[1].list();
    if (!name || name->empty()) return;
    IMAPFolder folder{utf8Names_ ? *name : ModifiedUTF7::decode(*name)};
    folder.delimiter = response.tokens[2].stringValue().value_or("");
    for (const IMAPToken& attribute : attributes == nullptr ? IMAPToken::List() : *attributes) {
      folder.attributes.insert(asciiLowercase(attribute.stringValue().value_or("")));
    }
    if (!folder.isSelectable() || folder.attributes.contains("\\nonexistent")) return;
    // A server that does not keep to the encoding knows its mailbox only as it wrote it.
    if (wireName(folder.path) != *name) wireNames_[folder.path] = *name;
    folders.push_back(std::move(folder));
  };
  const std::string command = "LIST " + quotedName(reference) + " " + quotedName(pattern);
  if (hasCapability("SPECIAL-USE")) {
    try {
      execute(command + " RETURN (SPECIAL-USE)", onUntagged);
      return folders;
    } catch (const IMAPError& error) {
      // Servers that know the attributes need not know the option (RFC 6154 section 4).
      if (!error.is<IMAPError::CommandFailed>()) throw;
      folders.clear();
    }
  }
  execute(command, onUntagged);
  return folders;
}

IMAPMailboxStatus IMAPClient::select(const std::string& mailbox, bool readOnly) {
  const std::string command = (readOnly ? "EXAMINE " : "SELECT ") + quotedName(mailbox) +
                              (hasCapability("CONDSTORE") ? " (CONDSTORE)" : "");
  refuseForbidden(command);
  selected_.reset();
  selectedStatus_.reset();
  IMAPMailboxStatus status;
  status.readOnly = readOnly;
  execute(command, [&](const IMAPResponse& response) { readSelectResponse(response, status); });
  selected_ = mailbox;
  selectedStatus_ = status;
  return status;
}

IMAPMailboxStatus IMAPClient::status(const std::string& mailbox) {
  IMAPMailboxStatus status;
  execute("STATUS " + quotedName(mailbox) +
              (hasCapability("CONDSTORE") ? " (MESSAGES UIDNEXT UIDVALIDITY UNSEEN HIGHESTMODSEQ)"
                                          : " (MESSAGES UIDNEXT UIDVALIDITY UNSEEN)"),
          [&](const IMAPResponse& response) { readStatusResponse(response, status); });
  return status;
}

void IMAPClient::createFolder(const std::string& path) { execute("CREATE " + quotedName(path)); }

std::vector<std::int64_t> IMAPClient::searchUIDs(std::optional<Date> since,
                                                 std::optional<Date> before,
                                                 std::optional<std::int64_t> minimumUID) {
  std::vector<std::string> criteria;
  if (since) criteria.push_back("SINCE " + searchDate(*since));
  if (before) criteria.push_back("BEFORE " + searchDate(*before));
  if (minimumUID) criteria.push_back(fmt::format("UID {}:*", *minimumUID));

  std::vector<std::int64_t> uids;
  const auto search = [&](const std::string& words) {
    execute("UID SEARCH " + words,
            [&](const IMAPResponse& response) { readSearchResponse(response, uids); });
  };
  const std::int64_t messages = selectedStatus_ ? selectedStatus_->messages : 0;
  const bool hasExtended = hasCapability("ESEARCH");
  if (hasExtended || messages <= kSearchedAtOnce) {
    const std::string words = criteria.empty() ? "ALL" : join(criteria, " ");
    search(hasExtended ? "RETURN (ALL) " + words : words);
  } else {
    // From the top: a message that is expunged meanwhile moves others down, into parts yet to come.
    std::int64_t first = (messages - 1) / kSearchedAtOnce * kSearchedAtOnce + 1;
    std::string last = "*";
    for (; first > 0; first -= kSearchedAtOnce) {
      search(join({fmt::format("{}:{}", first, last), join(criteria, " ")}, " "));
      last = std::to_string(first - 1);
    }
  }
  std::sort(uids.begin(), uids.end());
  uids.erase(std::unique(uids.begin(), uids.end()), uids.end());
  return uids;
}

IMAPAppendResult IMAPClient::append(BytesView message, const std::string& mailbox,
                                    const std::set<MessageFlag>& flags,
                                    std::optional<Date> internalDate) {
  std::string command = "APPEND " + quotedName(mailbox);
  if (const std::string text = storableFlags(flags); !text.empty()) command += " (" + text + ")";
  if (internalDate) command += " \"" + internalDateText(*internalDate) + "\"";
  // LITERAL- allows this for small messages only; servers that offer it take larger ones as well.
  const bool waits = !hasCapability("LITERAL+") && !hasCapability("LITERAL-");
  command += fmt::format(" {{{}{}}}", message.size(), waits ? "" : "+");

  dropAbandoned();
  const std::string tag = begin(command);
  bool isSent = false;
  const auto sendMessage = [&] {
    if (std::exchange(isSent, true)) return;
    transport_.send(message);
    transport_.send("\r\n");
  };
  if (!waits) orClose(sendMessage);
  const IMAPResponse answer =
      finish(tag, nullptr, [&](const IMAPResponse& /*goAhead*/) { sendMessage(); });
  requireSuccess(answer, command);

  IMAPAppendResult result;
  const auto numbers = splitOmittingEmpty(answer.responseCodeValue("APPENDUID").value_or(""), " ");
  if (numbers.size() == 2) {
    result.uidValidity = parseInteger(numbers[0]);
    result.uid = parseInteger(numbers[1]);
  }
  return result;
}

}  // namespace ambervane
