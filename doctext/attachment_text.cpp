#include "doctext/attachment_text.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "doctext/attachment_kind.h"
#include "doctext/document_helper.h"
#include "doctext/plain_text.h"
#include "doctext/recent_documents.h"
#include "mailcore/parameterized_header.h"

namespace ambervane {
namespace {

/// Of text, at most this many times the limit of what comes out is looked at.
constexpr std::size_t kReadPerText = 8;
/// Documents whose texts are remembered, and bytes of these.
constexpr std::size_t kRecentDocuments = 4096;
constexpr std::size_t kRecentTextBytes = std::size_t{8} << 20;

/// The first `limit` bytes, less a character of UTF-8 cut at their end.
BytesView cutText(BytesView bytes, std::size_t limit) {
  if (bytes.size() <= limit) return bytes;
  std::size_t end = limit;
  while (end > 0 && limit - end < 3 && (bytes[end] & 0xc0) == 0x80) --end;
  return bytes.substr(0, end);
}

}  // namespace

struct AttachmentTextReader::Parts {
  AttachmentTextLimits limits;
  mutable DocumentHelpers helpers;
  mutable RecentDocuments recent{kRecentDocuments, kRecentTextBytes};

  AttachmentText readText(AttachmentKind kind, BytesView bytes,
                          std::optional<std::string_view> charset) const {
    bytes = cutText(bytes, limits.textBytes * kReadPerText);
    TextCollector collector(limits.textBytes);
    AttachmentText result;
    switch (kind) {
      case AttachmentKind::html:
        result.readable = readHtml(bytes, charset, collector);
        break;
      case AttachmentKind::calendar:
        result.readable = readCalendar(bytes, charset, collector);
        break;
      default:
        result.readable = readPlainText(bytes, charset, collector);
    }
    result.text = collector.take();
    return result;
  }

  std::optional<AttachmentText> readDocument(const RecognisedKind& recognised, BytesView bytes,
                                             std::string_view digest) const {
    if (bytes.size() > limits.attachmentBytes) return AttachmentText{{}, false};
    HelperRequest request;
    request.task = recognised.kind == AttachmentKind::pdf   ? HelperTask::pdf
                   : recognised.kind == AttachmentKind::xml ? HelperTask::xml
                                                            : HelperTask::office;
    request.textBytes = limits.textBytes;
    request.unpackedBytes = limits.unpackedBytes;
    request.memoryBytes = limits.memoryBytes;
    request.processorMilliseconds = limits.processorMilliseconds;
    request.totalMilliseconds = limits.totalMilliseconds;
    const DocumentText read = readOnce(request, bytes, digest);
    if (read.reading == DocumentReading::notDocument && !recognised.isDeclared) return std::nullopt;
    return AttachmentText{repairedUtf8(read.text), read.reading == DocumentReading::complete};
  }

  DocumentText readOnce(const HelperRequest& request, BytesView bytes,
                        std::string_view digest) const {
    const std::string name =
        std::string(digest) + '/' + std::to_string(static_cast<std::uint32_t>(request.task));
    if (!digest.empty()) {
      if (auto known = recent.find(name)) return *std::move(known);
    }
    const auto read = helpers.read(request, bytes);
    if (read && !digest.empty()) recent.keep(name, *read);
    return read.value_or(DocumentText{});
  }
};

AttachmentTextReader::AttachmentTextReader(std::filesystem::path helper,
                                           AttachmentTextLimits limits)
    : parts_(new Parts{limits, DocumentHelpers(std::move(helper))}) {}

AttachmentTextReader::~AttachmentTextReader() = default;

std::optional<AttachmentText> AttachmentTextReader::read(BytesView bytes,
                                                         std::string_view contentType,
                                                         std::string_view fileName,
                                                         std::string_view digest) const {
  const auto type = ParameterizedHeader::parse(contentType);
  const auto recognised = attachmentKind(type ? type->value : "", fileName, bytes);
  if (!recognised) return std::nullopt;
  switch (recognised->kind) {
    case AttachmentKind::plainText:
    case AttachmentKind::html:
    case AttachmentKind::calendar:
      return parts_->readText(recognised->kind, bytes, type ? type->charset() : std::nullopt);
    case AttachmentKind::xml:
    case AttachmentKind::pdf:
    case AttachmentKind::office:
      break;
  }
  return parts_->readDocument(*recognised, bytes, digest);
}

}  // namespace ambervane
