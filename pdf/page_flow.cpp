#include "pdf/page_flow.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "pdf/drawing_target.h"
#include "pdf/pdf_document.h"
#include "pdf/text_setter.h"

namespace ambervane {
namespace {

constexpr double kPageRoom = sheet::kBottom - sheet::kTop;
constexpr double kParagraphGap = 5;
constexpr double kCellGap = 1.5;   ///< between the texts of a cell
constexpr double kRowPadding = 3;  ///< above and below the texts of a table's row
constexpr double kColumnGap = 10;
constexpr double kLabelShare = 0.24;
constexpr double kBulletShare = 0.025;
/// What must fit on the page behind a heading.
constexpr double kKeptWithHeading = 100;
/// A row up to this height is not divided between two pages.
constexpr double kUndividedRow = kPageRoom / 3;
constexpr double kSigningRoom = 40;
constexpr double kHairline = 0.5;

double heightOf(const std::vector<SetLine>& lines) {
  double height = 0;
  for (const SetLine& line : lines) height += line.spaceBefore + line.height;
  return height;
}

}  // namespace

/// A column of a row that is being placed.
struct PageFlow::Column {
  double left = 0;
  double width = 0;
  PdfAlignment alignment = PdfAlignment::start;
  std::vector<SetLine> lines;
  std::size_t placed = 0;  ///< how many of them are on a page
};

PageFlow::PageFlow(TextSetter& setter, const PdfSetup& setup, DrawingTarget* target, int pages)
    : setter_(&setter), setup_(&setup), target_(target), pages_(pages) {
  drawFrame();
}

double PageFlow::room() const noexcept {
  return unbounded_ ? std::numeric_limits<double>::infinity() : kPageRoom - y_;
}

void PageFlow::measureOnly() noexcept {
  target_ = nullptr;
  unbounded_ = true;
}

void PageFlow::beginPage() {
  if (target_ != nullptr) target_->endPage();
  ++page_;
  y_ = 0;
  drawFrame();
}

void PageFlow::drawFrame() {
  if (target_ == nullptr) return;
  const auto pair = [this](const std::string& left, const std::string& right, double top) {
    constexpr double kHalf = (sheet::kRight - sheet::kLeft - kColumnGap) / 2;
    const auto put = [&](const std::string& text, double at, PdfAlignment alignment) {
      target_->drawLine(setter_->single({text, PdfStyle::small, PdfTone::muted}, kHalf, alignment),
                        at, top);
    };
    put(left, sheet::kLeft, PdfAlignment::start);
    put(right, sheet::kRight - kHalf, PdfAlignment::end);
  };
  pair(setup_->headerLeft, setup_->headerRight, sheet::kHeaderTop);
  pair(setup_->footerLeft, setup_->pageLabel ? setup_->pageLabel(page_, pages_) : "",
       sheet::kFooterTop);
  for (const double top : {sheet::kHeaderTop + 14, sheet::kFooterTop - 4}) {
    target_->drawRule(sheet::kLeft, sheet::kRight, top, kHairline, PdfTone::muted);
  }
}

void PageFlow::draw(const SetLine& line, double left, double top) {
  if (target_ != nullptr) target_->drawLine(line, left, sheet::kTop + top);
}

void PageFlow::drawRule(double left, double right, double width) {
  if (target_ != nullptr) {
    target_->drawRule(left, right, sheet::kTop + y_, width, PdfTone::muted);
  }
}

void PageFlow::space(double points) {
  if (y_ > 0) y_ += points;
}

void PageFlow::newPage() {
  if (!unbounded_) beginPage();
}

std::vector<PageFlow::Column> PageFlow::columns(const std::vector<PdfColumn>& shares) const {
  double sum = 0;
  for (const PdfColumn& column : shares) sum += column.share;
  const double width =
      sheet::kRight - sheet::kLeft - kColumnGap * static_cast<double>(shares.size() - 1);
  std::vector<Column> columns;
  double left = sheet::kLeft;
  for (const PdfColumn& share : shares) {
    Column column;
    column.left = left;
    column.width = width * share.share / sum;
    column.alignment = share.alignment;
    left += column.width + kColumnGap;
    columns.push_back(std::move(column));
  }
  return columns;
}

void PageFlow::setCell(Column& column, const PdfCell& cell) {
  for (const PdfText& text : cell) {
    double gap = column.lines.empty() ? 0 : kCellGap;
    setter_->set(text, column.width, column.alignment, [&](std::vector<SetLine> lines) {
      for (SetLine& line : lines) {
        line.spaceBefore = std::exchange(gap, 0);
        column.lines.push_back(std::move(line));
      }
    });
  }
}

void PageFlow::placeRow(std::vector<Column>& row, const OnNewPage& onNewPage) {
  const auto turn = [&] {
    beginPage();
    if (onNewPage) onNewPage();
  };
  double height = 0;
  for (const Column& column : row) height = std::max(height, heightOf(column.lines));
  if (height > room() && height <= kUndividedRow && y_ > 0) turn();
  for (bool isFresh = y_ <= 0;; isFresh = true) {
    double used = 0;
    bool isWhole = true;
    for (Column& column : row) {
      double at = 0;
      for (; column.placed < column.lines.size(); ++column.placed) {
        const SetLine& line = column.lines[column.placed];
        const double before = at > 0 || column.placed == 0 ? line.spaceBefore : 0;
        // A page that has been begun for this row takes a line of it in any case.
        if (at + before + line.height > room() && !(isFresh && at <= 0)) break;
        draw(line, column.left, y_ + at + before);
        at += before + line.height;
      }
      used = std::max(used, at);
      isWhole = isWhole && column.placed == column.lines.size();
    }
    y_ += used;
    if (isWhole) return;
    turn();
  }
}

void PageFlow::placeLines(const std::vector<SetLine>& lines) {
  std::size_t fitting = 0;
  double height = 0;
  while (fitting < lines.size() && height + lines[fitting].height <= room()) {
    height += lines[fitting++].height;
  }
  // Neither the first line of several stays behind alone, nor does the last go ahead alone.
  if (fitting < lines.size() && lines.size() > 1) {
    if (fitting == 1) fitting = 0;
    if (lines.size() - fitting == 1 && fitting > 2) --fitting;
  }
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i == fitting || (i > fitting && lines[i].height > room())) {
      if (y_ > 0) beginPage();
    }
    draw(lines[i], sheet::kLeft, y_);
    y_ += lines[i].height;
  }
}

void PageFlow::paragraph(const PdfText& text) {
  setter_->set(text, sheet::kRight - sheet::kLeft, PdfAlignment::start,
               [this](const std::vector<SetLine>& lines) { placeLines(lines); });
  space(kParagraphGap);
}

void PageFlow::heading(const std::string& text, PdfStyle style) {
  const double gap = style == PdfStyle::title ? 0 : style == PdfStyle::heading ? 12 : 7;
  std::vector<Column> row = columns({PdfColumn{}});
  setCell(row[0], {PdfText{text, style}});
  if (gap + heightOf(row[0].lines) + kKeptWithHeading > room() && y_ > 0) beginPage();
  space(gap);
  if (target_ != nullptr && style == PdfStyle::heading) {
    target_->addToOutline(text, page_, sheet::kTop + y_);
  }
  placeRow(row, nullptr);
  y_ += style == PdfStyle::title ? 8 : 4;
}

void PageFlow::list(const std::vector<std::string>& items) {
  for (const std::string& item : items) {
    std::vector<Column> row = columns({PdfColumn{kBulletShare}, PdfColumn{1 - kBulletShare}});
    setCell(row[0], {PdfText{"•"}});
    setCell(row[1], {PdfText{item}});
    placeRow(row, nullptr);
    space(kCellGap);
  }
  space(kParagraphGap);
}

void PageFlow::facts(const std::vector<std::pair<std::string, PdfText>>& rows) {
  for (const auto& [label, value] : rows) {
    std::vector<Column> row = columns({PdfColumn{kLabelShare}, PdfColumn{1 - kLabelShare}});
    setCell(row[0], {PdfText{label, PdfStyle::body, PdfTone::muted}});
    setCell(row[1], {value});
    placeRow(row, nullptr);
    space(kCellGap);
  }
  space(kParagraphGap);
}

void PageFlow::placeTableRow(const PdfTable& table, const std::vector<PdfCell>& cells,
                             const OnNewPage& onNewPage) {
  std::vector<Column> row = columns(table.columns);
  for (std::size_t i = 0; i < std::min(row.size(), cells.size()); ++i) setCell(row[i], cells[i]);
  y_ += kRowPadding;
  placeRow(row, onNewPage);
  y_ += kRowPadding;
  drawRule(sheet::kLeft, sheet::kRight, kHairline);
}

void PageFlow::table(const PdfTable& table) {
  if (table.columns.empty()) return;
  std::vector<PdfCell> header;
  for (const std::string& name : table.header) {
    header.push_back({PdfText{name, PdfStyle::strong}});
  }
  const OnNewPage repeatHeader = [&] {
    if (!header.empty()) placeTableRow(table, header, nullptr);
    y_ += kRowPadding;
  };
  if (!header.empty()) {
    PageFlow measuring(*this);
    measuring.measureOnly();
    measuring.placeTableRow(table, header, nullptr);
    if (!table.rows.empty()) measuring.placeTableRow(table, table.rows.front(), nullptr);
    if (std::min(measuring.y_ - y_, kUndividedRow) > room() && y_ > 0) beginPage();
    placeTableRow(table, header, nullptr);
  }
  for (const std::vector<PdfCell>& cells : table.rows) placeTableRow(table, cells, repeatHeader);
  space(kParagraphGap);
}

void PageFlow::signatureLines(const std::vector<PdfCell>& captions) {
  if (captions.empty()) return;
  keepTogether([&](PageFlow& flow) {
    flow.y_ += kSigningRoom;
    std::vector<Column> row = flow.columns(std::vector<PdfColumn>(captions.size()));
    for (std::size_t i = 0; i < row.size(); ++i) {
      flow.drawRule(row[i].left, row[i].left + row[i].width, kHairline);
      flow.setCell(row[i], captions[i]);
    }
    flow.y_ += kCellGap;
    flow.placeRow(row, nullptr);
  });
}

void PageFlow::keepTogether(const std::function<void(PageFlow&)>& content) {
  if (!unbounded_) {
    PageFlow measuring(*this);
    measuring.measureOnly();
    content(measuring);
    if (measuring.y_ > kPageRoom && measuring.y_ - y_ <= kPageRoom && y_ > 0) beginPage();
  }
  content(*this);
}

}  // namespace ambervane
