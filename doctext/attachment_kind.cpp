#include "doctext/attachment_kind.h"

#include <string>

#include "base/text.h"

namespace ambervane {
namespace {

using Kind = AttachmentKind;

struct NamedKind {
  std::string_view name;
  std::optional<Kind> kind;  ///< absent: known not to be read
};

constexpr NamedKind kTypes[] = {
    {"application/pdf", Kind::pdf},
    {"application/x-pdf", Kind::pdf},
    {"application/acrobat", Kind::pdf},
    {"text/pdf", Kind::pdf},
    {"text/html", Kind::html},
    {"application/xhtml+xml", Kind::html},
    {"text/calendar", Kind::calendar},
    {"text/x-vcalendar", Kind::calendar},
    {"application/ics", Kind::calendar},
    {"text/xml", Kind::xml},
    {"application/xml", Kind::xml},
    {"application/csv", Kind::plainText},
    {"application/json", Kind::plainText},
    {"application/vnd.ms-word.document.macroenabled.12", Kind::office},
    {"application/vnd.ms-word.template.macroenabled.12", Kind::office},
    {"application/vnd.ms-excel.sheet.macroenabled.12", Kind::office},
    {"application/vnd.ms-excel.template.macroenabled.12", Kind::office},
    {"application/vnd.ms-powerpoint.presentation.macroenabled.12", Kind::office},
    {"application/vnd.ms-powerpoint.slideshow.macroenabled.12", Kind::office},
    {"application/vnd.ms-powerpoint.template.macroenabled.12", Kind::office},
    // Text with commands between the words.
    {"text/rtf", std::nullopt},
    {"text/richtext", std::nullopt},
};

constexpr NamedKind kTypePrefixes[] = {
    {"application/vnd.openxmlformats-officedocument.", Kind::office},
    {"application/vnd.oasis.opendocument.", Kind::office},
    {"text/", Kind::plainText},
};

constexpr NamedKind kExtensions[] = {
    {"pdf", Kind::pdf},        {"docx", Kind::office},   {"docm", Kind::office},
    {"dotx", Kind::office},    {"dotm", Kind::office},   {"xlsx", Kind::office},
    {"xlsm", Kind::office},    {"xltx", Kind::office},   {"xltm", Kind::office},
    {"pptx", Kind::office},    {"pptm", Kind::office},   {"ppsx", Kind::office},
    {"ppsm", Kind::office},    {"potx", Kind::office},   {"potm", Kind::office},
    {"odt", Kind::office},     {"ott", Kind::office},    {"ods", Kind::office},
    {"ots", Kind::office},     {"odp", Kind::office},    {"otp", Kind::office},
    {"odg", Kind::office},     {"otg", Kind::office},    {"txt", Kind::plainText},
    {"text", Kind::plainText}, {"csv", Kind::plainText}, {"tsv", Kind::plainText},
    {"log", Kind::plainText},  {"md", Kind::plainText},  {"json", Kind::plainText},
    {"htm", Kind::html},       {"html", Kind::html},     {"xhtml", Kind::html},
    {"ics", Kind::calendar},   {"vcs", Kind::calendar},  {"xml", Kind::xml},
};

/// Types that say nothing of the content.
constexpr std::string_view kUnspecificTypes[] = {
    "",
    "application/octet-stream",
    "application/octetstream",
    "application/x-octet-stream",
    "application/binary",
    "application/download",
    "application/x-download",
    "application/force-download",
    "application/unknown",
    "binary/octet-stream",
};

template <std::size_t N>
const NamedKind* find(const NamedKind (&table)[N], std::string_view name) {
  for (const NamedKind& entry : table) {
    if (entry.name == name) return &entry;
  }
  return nullptr;
}

/// Null for a type that is in no table.
const NamedKind* byType(std::string_view type) {
  if (const NamedKind* const exact = find(kTypes, type)) return exact;
  for (const NamedKind& entry : kTypePrefixes) {
    if (type.starts_with(entry.name)) return &entry;
  }
  static constexpr NamedKind kOtherXml{"application/*+xml", Kind::xml};
  return type.starts_with("application/") && type.ends_with("+xml") ? &kOtherXml : nullptr;
}

const NamedKind* byExtension(std::string_view fileName) {
  const std::size_t dot = fileName.rfind('.');
  if (dot == std::string_view::npos) return nullptr;
  return find(kExtensions, asciiLowercase(trim(fileName.substr(dot + 1))));
}

/// What the very first bytes say.
std::optional<Kind> bySignature(BytesView bytes) {
  if (bytes.starts_with("%PDF-")) return Kind::pdf;
  if (bytes.starts_with("PK\x03\x04")) return Kind::office;
  return std::nullopt;
}

std::optional<Kind> byFirstBytes(BytesView bytes) {
  if (auto kind = bySignature(bytes)) return kind;
  const BytesView start = bytes.substr(0, 1024);
  // Readers of PDF look for the header in the first kilobyte.
  if (start.find("%PDF-") != BytesView::npos) return Kind::pdf;
  if (start.starts_with("BEGIN:VCALENDAR")) return Kind::calendar;
  if (start.starts_with("<?xml")) return Kind::xml;
  return std::nullopt;
}

}  // namespace

std::optional<RecognisedKind> attachmentKind(std::string_view mimeType, std::string_view fileName,
                                             BytesView bytes) {
  const NamedKind* declared = byType(mimeType);
  if (declared == nullptr) declared = byExtension(fileName);
  if (declared != nullptr) {
    if (!declared->kind) return std::nullopt;
    const std::optional<Kind> found = bySignature(bytes);
    if (found && found != declared->kind) return RecognisedKind{*found};
    return RecognisedKind{*declared->kind};
  }
  for (const std::string_view type : kUnspecificTypes) {
    if (type != mimeType) continue;
    if (const auto kind = byFirstBytes(bytes)) return RecognisedKind{*kind, false};
  }
  return std::nullopt;
}

}  // namespace ambervane
