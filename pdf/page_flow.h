#ifndef AMBERVANE_PDF_PAGE_FLOW_H_
#define AMBERVANE_PDF_PAGE_FLOW_H_

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace ambervane {

class DrawingTarget;
class TextSetter;
struct PdfDocument;
struct PdfSetup;
struct SetLine;

enum class PdfStyle { title, heading, subheading, body, strong, small, fixed };
/// How a text is coloured; each tone is dark enough to be read on a grey print.
enum class PdfTone { plain, muted, good, warning, bad };
enum class PdfAlignment { start, end };

/// A text of any script. A line feed begins a new line. Ill-formed bytes and characters that
/// cannot be seen or turn the order of others around stand as U+FFFD; words too long for a line
/// are broken between two characters, without a hyphen.
struct PdfText {
  std::string text;
  PdfStyle style = PdfStyle::body;
  PdfTone tone = PdfTone::plain;
};

/// What stands in a cell, one under the other.
using PdfCell = std::vector<PdfText>;

struct PdfColumn {
  double share = 1;  ///< of the width, in relation to the other columns
  PdfAlignment alignment = PdfAlignment::start;
};

struct PdfTable {
  std::vector<PdfColumn> columns;
  std::vector<std::string> header;  ///< stands again on each page; may be empty
  std::vector<std::vector<PdfCell>> rows;
};

/// Takes the contents of a document one after the other and fills pages with them, from `setPdf`.
/// What does not fit on a page goes on on the next: tables between rows, a long row and a
/// paragraph between lines. Lengths are points of 1/72 inch.
class PageFlow {
 public:
  /// A heading, with room for some lines of what follows it on the same page. One of
  /// `PdfStyle::heading` is also listed in the outline that viewers show beside the pages.
  void heading(const std::string& text, PdfStyle style = PdfStyle::heading);
  /// Of any length: a long text is set piece by piece.
  void paragraph(const PdfText& text);
  void list(const std::vector<std::string>& items);
  /// Rows of a label and what it stands for.
  void facts(const std::vector<std::pair<std::string, PdfText>>& rows);
  void table(const PdfTable& table);
  /// Blank lines to sign on, side by side, each with words beneath it.
  void signatureLines(const std::vector<PdfCell>& captions);
  /// Leaves room; nothing at the top of a page.
  void space(double points);
  void newPage();
  /// Puts all that `content` adds on one page if it fits on one. `content` is called twice.
  void keepTogether(const std::function<void(PageFlow&)>& content);

 private:
  friend PdfDocument setPdf(const PdfSetup& setup, const std::function<void(PageFlow&)>& content);
  struct Column;
  /// Where a page is broken, `onNewPage` is called before what goes on there.
  using OnNewPage = std::function<void()>;

  /// A pass that draws has a `target`; without one pages are merely counted.
  PageFlow(TextSetter& setter, const PdfSetup& setup, DrawingTarget* target, int pages);
  PageFlow(const PageFlow&) = default;

  double room() const noexcept;
  void measureOnly() noexcept;
  void beginPage();
  void drawFrame();
  std::vector<Column> columns(const std::vector<PdfColumn>& shares) const;
  void setCell(Column& column, const PdfCell& cell);
  void placeRow(std::vector<Column>& row, const OnNewPage& onNewPage);
  void placeTableRow(const PdfTable& table, const std::vector<PdfCell>& cells,
                     const OnNewPage& onNewPage);
  void placeLines(const std::vector<SetLine>& lines);
  void draw(const SetLine& line, double left, double top);
  void drawRule(double left, double right, double width);

  TextSetter* setter_;
  const PdfSetup* setup_;
  DrawingTarget* target_;
  int pages_;               ///< as counted before; 0 while counting
  int page_ = 1;            ///< the present one
  double y_ = 0;            ///< from the top of the room for contents
  bool unbounded_ = false;  ///< the page has no end: what is added is only measured
};

}  // namespace ambervane

#endif  // AMBERVANE_PDF_PAGE_FLOW_H_
