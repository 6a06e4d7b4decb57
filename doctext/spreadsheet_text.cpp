#include "doctext/spreadsheet_text.h"

#include <algorithm>
#include <map>

#include "base/text.h"
#include "doctext/number_format.h"

namespace ambervane {
namespace {

/// The strings that cells name by number, one behind the other.
class SharedStrings final : public XmlHandler {
 public:
  std::string_view at(std::int64_t index) const {
    if (index < 0 || static_cast<std::size_t>(index) >= ends_.size()) return {};
    const auto i = static_cast<std::size_t>(index);
    const std::size_t begin = i == 0 ? 0 : ends_[i - 1];
    return std::string_view(all_).substr(begin, ends_[i] - begin);
  }

  bool startElement(std::string_view name, const XmlAttributes&) override {
    inText_ = name == "t";
    return name != "rPh";  // how to pronounce it
  }
  void endElement(std::string_view name) override {
    inText_ = false;
    if (name == "si") ends_.push_back(all_.size());
  }
  void characters(std::string_view text) override {
    if (inText_) all_ += text;
  }

 private:
  std::string all_;
  std::vector<std::size_t> ends_;
  bool inText_ = false;
};

/// How the cells of each style show numbers.
class CellStyles final : public XmlHandler {
 public:
  CellStyles() { formats_.emplace(0, NumberFormat("")); }

  const NumberFormat& format(std::int64_t style) const {
    const bool isKnown = style >= 0 && static_cast<std::size_t>(style) < styles_.size();
    const auto found = formats_.find(isKnown ? styles_[static_cast<std::size_t>(style)] : 0);
    return found == formats_.end() ? formats_.at(0) : found->second;
  }

  bool startElement(std::string_view name, const XmlAttributes& attributes) override {
    const auto number = [&](std::string_view attribute) {
      return parseInteger(attributes.value(attribute)).value_or(0);
    };
    if (name == "numFmt") {
      formats_.insert_or_assign(number("numFmtId"), NumberFormat(attributes.value("formatCode")));
    } else if (name == "cellXfs") {
      inCellStyles_ = true;
    } else if (name == "xf" && inCellStyles_) {
      const std::int64_t format = number("numFmtId");
      styles_.push_back(format);
      formats_.try_emplace(format, NumberFormat::builtInCode(format));
    }
    return true;
  }
  void endElement(std::string_view name) override {
    if (name == "cellXfs") inCellStyles_ = false;
  }
  void characters(std::string_view) override {}

 private:
  std::map<std::int64_t, NumberFormat> formats_;  ///< 0, "General", is always there
  std::vector<std::int64_t> styles_;              ///< the format of each
  bool inCellStyles_ = false;
};

/// Values longer than a cell can hold are cut.
constexpr std::size_t kLongestValue = 128 * 1024;

class SheetReader final : public XmlHandler {
 public:
  SheetReader(const SharedStrings& strings, const CellStyles& styles, bool from1904,
              TextCollector& collector)
      : strings_(strings), styles_(styles), from1904_(from1904), collector_(collector) {}

  bool startElement(std::string_view name, const XmlAttributes& attributes) override {
    if (name == "c") {
      type_ = attributes.value("t");
      style_ = parseInteger(attributes.value("s")).value_or(0);
      value_.clear();
    }
    takes_ = name == "v" || name == "t";
    return name != "f" && name != "rPh";
  }
  void endElement(std::string_view name) override {
    takes_ = false;
    if (name == "c") {
      putCell();
    } else if (name == "row") {
      collector_.breakLine();
    }
  }
  void characters(std::string_view text) override {
    if (takes_ && value_.size() < kLongestValue) value_ += text;
  }

 private:
  void putCell() {
    if (value_.empty()) return;
    collector_.breakWord();
    if (type_ == "s") {
      collector_.append(strings_.at(parseInteger(value_).value_or(-1)));
    } else if (type_.empty() || type_ == "n") {
      collector_.append(styles_.format(style_).words(value_, from1904_));
    } else if (type_ == "b") {
      collector_.append(value_ == "1" ? "TRUE" : "FALSE");
    } else if (type_ != "e") {
      collector_.append(value_);
    }
    collector_.breakWord();
  }

  const SharedStrings& strings_;
  const CellStyles& styles_;
  bool from1904_;
  TextCollector& collector_;
  std::string type_;  ///< of the cell being read, as the file says it
  std::int64_t style_ = 0;
  std::string value_;
  bool takes_ = false;
};

}  // namespace

void readWorkbook(OfficePackage& package, const PartOutline& outline,
                  const std::vector<PartRelation>& relations) {
  SharedStrings strings;
  CellStyles styles;
  const auto readIfThere = [&](std::string_view type, XmlHandler& handler) {
    const std::string_view part = targetOfType(relations, type);
    if (!part.empty()) package.readPart(part, handler);
  };
  readIfThere("sharedStrings", strings);
  readIfThere("styles", styles);
  TextCollector& collector = package.collector();
  for (const PartOutline::Sheet& sheet : outline.sheets) {
    if (collector.isFull()) return;
    collector.append(sheet.name);
    collector.breakLine();
    const std::string_view part = targetOfId(relations, sheet.relation);
    SheetReader reader(strings, styles, outline.from1904, collector);
    package.readPart(part, reader);
    collector.checkpoint();
    package.readRunsBeside(part);
  }
}

}  // namespace ambervane
