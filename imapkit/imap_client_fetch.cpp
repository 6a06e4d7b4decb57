#include <algorithm>
#include <utility>

#include "base/text.h"
#include "imapkit/imap_client.h"
#include "imapkit/sequence_set.h"
#include "mailcore/header_set.h"

// Requests are sent ahead of the answers that are read (RFC 3501 section 5.5), so that neither the
// way to the server and back nor the work on a batch leaves the line idle. What the server sends
// meanwhile waits in the system's buffers; in memory is the batch that is being read.

namespace ambervane {
namespace {

constexpr std::size_t kMaxFetchesInFlight = 8;
/// Of command lines that may not have been read by the server yet: so few fit any socket's buffer,
/// so sending never waits for a server that waits for us to read.
constexpr std::size_t kMaxBytesInFlight = 16384;
/// Single messages that the server refuses one after the other before no more are asked for.
constexpr int kMaxRefusalsInARow = 25;

constexpr std::string_view kMessageItems = "(UID FLAGS INTERNALDATE RFC822.SIZE BODY.PEEK[])";
constexpr std::string_view kEnvelopeItems = "(UID FLAGS INTERNALDATE RFC822.SIZE)";
constexpr std::string_view kMessageIDItems = "(UID BODY.PEEK[HEADER.FIELDS (MESSAGE-ID)])";

IMAPMessage messageOf(FetchItem&& item) {
  IMAPMessage message;
  message.uid = item.uid;
  message.rawFlags = std::move(item.flags).value_or(std::vector<std::string>());
  message.flags = systemFlags(message.rawFlags);
  message.internalDate = item.internalDate;
  message.size = item.size.value_or(0);
  message.raw = std::move(*item.message);
  return message;
}

}  // namespace

bool IMAPClient::mayBeginFetch() const noexcept {
  std::size_t bytes = 0;
  for (const Fetch& fetch : inFlight_) bytes += fetch.lineBytes;
  return inFlight_.empty() || (inFlight_.size() < kMaxFetchesInFlight && bytes < kMaxBytesInFlight);
}

void IMAPClient::beginFetch(std::span<const std::int64_t> uids, std::string_view items) {
  const std::string command = "UID FETCH " + compressSequenceSet(uids) + " " + std::string(items);
  Fetch fetch;
  fetch.tag = begin(command);
  fetch.lineBytes = command.size();
  fetch.uids.assign(uids.begin(), uids.end());
  std::sort(fetch.uids.begin(), fetch.uids.end());
  inFlight_.push_back(std::move(fetch));
}

/// Reads until the oldest request is answered. Data goes to the request that asked for it, in
/// whatever order the server sends it.
IMAPClient::Fetch IMAPClient::finishFetch() {
  Fetch& oldest = inFlight_.front();
  if (!oldest.answer) {
    oldest.answer = finish(oldest.tag, [this](IMAPResponse& response) { noteFetched(response); });
  }
  Fetch fetch = std::move(oldest);
  inFlight_.pop_front();
  return fetch;
}

void IMAPClient::noteFetched(IMAPResponse& response) {
  if (response.kind == IMAPResponse::Kind::tagged) {
    for (Fetch& fetch : inFlight_) {
      if (fetch.tag == response.tag) fetch.answer = response;
    }
    return;
  }
  auto item = parseFetchResponse(std::move(response));
  if (!item) return;
  for (Fetch& fetch : inFlight_) {
    if (!std::binary_search(fetch.uids.begin(), fetch.uids.end(), item->uid)) continue;
    const auto [known, isNew] = fetch.itemOf.try_emplace(item->uid, fetch.items.size());
    if (isNew) {
      fetch.items.push_back(std::move(*item));
    } else {
      fetch.items[known->second].merge(std::move(*item));
    }
    return;
  }
}

/// Reads and drops what is still to come of a fetch that was ended early.
void IMAPClient::dropAbandoned() {
  while (!inFlight_.empty()) {
    // Without UIDs to look for nothing is kept.
    for (Fetch& fetch : inFlight_) fetch.uids.clear();
    finishFetch();
  }
}

void IMAPClient::pipeline(std::span<const std::int64_t> uids, std::size_t batchSize,
                          std::string_view items, const std::function<bool(Fetch)>& take) {
  batchSize = std::max<std::size_t>(batchSize, 1);
  dropAbandoned();
  while (!uids.empty() || !inFlight_.empty()) {
    while (!uids.empty() && mayBeginFetch()) {
      const auto batch = uids.first(std::min(batchSize, uids.size()));
      beginFetch(batch, items);
      uids = uids.subspan(batch.size());
    }
    if (!take(finishFetch())) return;
  }
}

void IMAPClient::fetchBatches(std::span<const std::int64_t> uids, std::size_t batchSize,
                              const BatchSink& sink) {
  std::vector<std::int64_t> refused;
  std::optional<IMAPResponse> refusal;
  bool anyArrived = false;
  bool isStopped = false;
  const auto deliver = [&](Fetch& fetch) {
    std::vector<IMAPMessage> batch;
    std::erase_if(fetch.uids, [&](std::int64_t uid) {
      const auto found = fetch.itemOf.find(uid);
      return found != fetch.itemOf.end() && fetch.items[found->second].message.has_value();
    });
    for (FetchItem& item : fetch.items) {
      if (item.message) batch.push_back(messageOf(std::move(item)));
    }
    if (batch.empty()) return true;
    anyArrived = true;
    isStopped = !sink(std::move(batch));
    return !isStopped;
  };

  pipeline(uids, batchSize, kMessageItems, [&](Fetch fetch) {
    if (!fetch.answer->hasAtom(0, "NO")) requireSuccess(*fetch.answer, "UID FETCH");
    const bool goesOn = deliver(fetch);
    if (fetch.answer->hasAtom(0, "NO")) {
      refused.insert(refused.end(), fetch.uids.begin(), fetch.uids.end());
      if (!refusal) refusal = std::move(fetch.answer);
    }
    return goesOn;
  });
  if (isStopped || !refusal) return;

  // One message that the server cannot read must not hold back those around it for ever.
  int inARow = 0;
  if (batchSize > 1) {
    pipeline(refused, 1, kMessageItems, [&](Fetch fetch) {
      inARow = fetch.answer->hasAtom(0, "OK") ? 0 : inARow + 1;
      return deliver(fetch) && inARow < kMaxRefusalsInARow;
    });
  }
  if (!anyArrived) requireSuccess(*refusal, "UID FETCH");
}

void IMAPClient::fetchMessages(std::span<const std::int64_t> uids, std::size_t batchSize,
                               const MessageSink& sink) {
  fetchBatches(uids, batchSize, [&](std::vector<IMAPMessage> batch) {
    return std::all_of(batch.begin(), batch.end(),
                       [&](IMAPMessage& message) { return sink(std::move(message)); });
  });
}

std::vector<IMAPEnvelope> IMAPClient::fetchEnvelopes(std::span<const std::int64_t> uids,
                                                     std::size_t batchSize) {
  std::vector<IMAPEnvelope> envelopes;
  pipeline(uids, batchSize, kEnvelopeItems, [&](const Fetch& fetch) {
    requireSuccess(*fetch.answer, "UID FETCH");
    for (const FetchItem& item : fetch.items) {
      envelopes.push_back({item.uid, item.size.value_or(0), item.internalDate,
                           systemFlags(item.flags.value_or(std::vector<std::string>()))});
    }
    return true;
  });
  return envelopes;
}

std::map<std::int64_t, std::string> IMAPClient::fetchMessageIDs(std::span<const std::int64_t> uids,
                                                                std::size_t batchSize) {
  std::map<std::int64_t, std::string> ids;
  pipeline(uids, batchSize, kMessageIDItems, [&](const Fetch& fetch) {
    requireSuccess(*fetch.answer, "UID FETCH");
    for (const FetchItem& item : fetch.items) {
      const HeaderSet header = HeaderSet::parse(item.header.value_or(""));
      const std::string_view id = trimOf(trim(header["message-id"].value_or("")), "<>");
      if (!id.empty()) ids[item.uid] = id;
    }
    return true;
  });
  return ids;
}

}  // namespace ambervane
