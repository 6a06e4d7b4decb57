#include "doctext/office_text.h"

#include <algorithm>
#include <utility>

#include "doctext/office_package.h"
#include "doctext/spreadsheet_text.h"

namespace ambervane {
namespace {

class OutlineReader final : public XmlHandler {
 public:
  bool startElement(std::string_view name, const XmlAttributes& attributes) override {
    if (outline.root.empty()) {
      outline.root = name;
      hasSeenEnough = name != "workbook" && name != "presentation";
    } else if (name == "sheet") {
      outline.sheets.push_back({std::string(attributes.value("name")), relationOf(attributes)});
    } else if (name == "sldId") {
      outline.slides.push_back(relationOf(attributes));
    } else if (name == "workbookPr") {
      const std::string_view value = attributes.value("date1904");
      outline.from1904 = value == "1" || value == "true";
    }
    return true;
  }
  void endElement(std::string_view) override {}
  void characters(std::string_view) override {}

  PartOutline outline;
  bool hasSeenEnough = false;

 private:
  static std::string relationOf(const XmlAttributes& attributes) {
    return std::string(attributes.value("id", "/relationships"));
  }
};

DocumentReading readOfficeOpenXml(OfficePackage& package) {
  const auto roots = package.relations("");
  const std::string_view mainPart = targetOfType(roots, "officeDocument");
  if (mainPart.empty()) {
    return package.isDamaged() ? DocumentReading::damaged : DocumentReading::notDocument;
  }
  OutlineReader outlineReader;
  package.readPart(mainPart, outlineReader, outlineReader.hasSeenEnough);
  const PartOutline& outline = outlineReader.outline;
  if (outline.root == "workbook") {
    readWorkbook(package, outline, package.relations(mainPart));
  } else if (outline.root == "presentation") {
    const auto relations = package.relations(mainPart);
    for (const std::string& slide : outline.slides) {
      package.readRuns(targetOfId(relations, slide));
    }
  } else if (outline.root == "document") {
    package.readRuns(mainPart);
  } else {
    return package.isDamaged() ? DocumentReading::damaged : DocumentReading::notDocument;
  }
  return package.isDamaged() ? DocumentReading::damaged : DocumentReading::complete;
}

/// OpenDocument (ISO/IEC 26300): all text stands in paragraphs and headings, that of a cell as the
/// program showed it.
class OpenDocumentReader final : public XmlHandler {
 public:
  OpenDocumentReader(std::string_view outermost, TextCollector& collector)
      : outermost_(outermost), collector_(collector) {}

  bool startElement(std::string_view name, const XmlAttributes&) override {
    if (name == outermost_) ++depth_;
    if (isParagraph(name)) {
      ++paragraphs_;
      collector_.breakLine();
    } else if (isBreak(name)) {
      collector_.breakWord();
    }
    // Deleted text, pictures and macros.
    return name != "tracked-changes" && name != "binary-data" && name != "scripts";
  }
  void endElement(std::string_view name) override {
    if (name == outermost_) --depth_;
    if (isParagraph(name)) {
      --paragraphs_;
      collector_.breakLine();
    } else if (isBreak(name)) {
      collector_.breakWord();
    }
  }
  void characters(std::string_view text) override {
    if (depth_ > 0 && paragraphs_ > 0) collector_.append(text);
  }

 private:
  static bool isParagraph(std::string_view name) { return name == "p" || name == "h"; }
  static bool isBreak(std::string_view name) {
    return name == "s" || name == "tab" || name == "line-break" || name == "note";
  }

  std::string_view outermost_;
  TextCollector& collector_;
  int depth_ = 0;
  int paragraphs_ = 0;
};

DocumentReading readOpenDocument(OfficePackage& package) {
  OpenDocumentReader body("body", package.collector());
  package.readPart("content.xml", body);
  package.collector().checkpoint();
  if (package.contains("styles.xml") && !package.collector().isFull()) {
    OpenDocumentReader headersAndFooters("master-styles", package.collector());
    package.readPart("styles.xml", headersAndFooters);
    package.collector().checkpoint();
  }
  return package.isDamaged() ? DocumentReading::damaged : DocumentReading::complete;
}

}  // namespace

DocumentReading readOfficeText(BytesView bytes, std::uint64_t unpackedBytes,
                               TextCollector& collector) {
  auto members = ZipMembers::open(bytes, unpackedBytes);
  if (!members) return DocumentReading::damaged;
  OfficePackage package(*std::move(members), collector);
  if (package.contains("_rels/.rels")) return readOfficeOpenXml(package);
  if (package.contains("content.xml")) return readOpenDocument(package);
  return DocumentReading::notDocument;
}

}  // namespace ambervane
