#include "mailformats/container_mbox.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "mailformats/mbox_format.h"
#include "mailformats/message_file.h"

// `held_` begins where a message starts, so the byte that decides whether a "From " is a start, the
// one in front of its line feed, is always at hand. What is not held, the bytes before the first
// message and a message too large, is cut down to the few bytes in which a start may have begun.

namespace ambervane {
namespace {

/// A line feed and "From " without its last byte, and the byte in front of them.
constexpr std::size_t kUndecidedBytes = 6;

}  // namespace

ContainerMbox::ContainerMbox(std::string originPath, std::string folderPath)
    : originPath_(std::move(originPath)), folderPath_(std::move(folderPath)) {}

bool ContainerMbox::read(BytesView head, InputStream& stream, const MessageImporter::Body& body,
                         const MessageImporter::Unreadable& unreadable) {
  for (BytesView piece = head; !piece.empty(); piece = stream.next()) {
    held_ += piece;
    if (!takeWhole(body, unreadable)) return false;
  }
  return takeLast(body, unreadable);
}

bool ContainerMbox::takeWhole(const MessageImporter::Body& body,
                              const MessageImporter::Unreadable& unreadable) {
  const BytesView held(held_);
  std::size_t begin = 0;
  for (std::size_t start = nextMboxStart(held, search_); start != BytesView::npos;
       start = nextMboxStart(held, start + 1)) {
    const BytesView before = held.substr(begin, start - begin);
    if (inMessage_) {
      if (!handOut(before, body, unreadable)) return false;
    } else {
      passOver(before);
      reportHead(unreadable, /*isWhole=*/false);
    }
    inMessage_ = true;
    tooLarge_ = false;
    ++ordinal_;
    begin = start;
  }
  held_.erase(0, begin);
  tooLarge_ = tooLarge_ || (inMessage_ && held_.size() > kMaxMessageBytes);
  if ((tooLarge_ || !inMessage_) && held_.size() > kUndecidedBytes) {
    const std::size_t dropped = held_.size() - kUndecidedBytes;
    if (!inMessage_) passOver(BytesView(held_).substr(0, dropped));
    held_.erase(0, dropped);
  }
  // A start of which the end is missing is looked for again, but the byte in front of it is known.
  // Only the very first bytes may be a start without one.
  const bool atFirstByte = !inMessage_ && headBytes_ == 0;
  search_ = atFirstByte ? 0 : std::max(held_.size(), kUndecidedBytes) + 2 - kUndecidedBytes;
  return true;
}

bool ContainerMbox::takeLast(const MessageImporter::Body& body,
                             const MessageImporter::Unreadable& unreadable) {
  if (inMessage_) return handOut(held_, body, unreadable);
  passOver(held_);
  reportHead(unreadable, /*isWhole=*/true);
  return true;
}

void ContainerMbox::passOver(BytesView head) {
  headBytes_ += head.size();
  headIsBlank_ = headIsBlank_ && std::all_of(head.begin(), head.end(), isAsciiSpace);
}

void ContainerMbox::reportHead(const MessageImporter::Unreadable& unreadable, bool isWhole) const {
  if (headIsBlank_ || !unreadable) return;
  unreadable(
      originPath_ + ": " +
      (isWhole ? "no message in it begins with \"From \""
               : std::to_string(headBytes_) + " bytes before the first message were passed over"));
}

bool ContainerMbox::handOut(BytesView segment, const MessageImporter::Body& body,
                            const MessageImporter::Unreadable& unreadable) {
  if (tooLarge_ || segment.size() > kMaxMessageBytes) {
    if (unreadable) {
      unreadable(originPath_ + ": message " + std::to_string(ordinal_) +
                 " is too large for a message");
    }
    return true;
  }
  MboxMessage message = readMboxSegment(segment, MboxVariant::detected);
  SourceMessage source;
  source.raw = std::move(message.raw);
  source.folderPath = folderPath_;
  source.flags = std::move(message.flags);
  source.internalDate = message.internalDate;
  source.sourceIdentifier = std::to_string(ordinal_);
  source.originPath = originPath_;
  return body(std::move(source));
}

}  // namespace ambervane
