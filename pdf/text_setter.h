#ifndef AMBERVANE_PDF_TEXT_SETTER_H_
#define AMBERVANE_PDF_TEXT_SETTER_H_

#include <pango/pangocairo.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "pdf/page_flow.h"

namespace ambervane {

/// `text` as it can be set: line ends of every kind as line feeds; ill-formed bytes, control
/// characters and those that turn the order of others around as U+FFFD.
std::string settableText(std::string_view text);

/// One line of set text. Lengths are points.
struct SetLine {
  std::shared_ptr<PangoLayout> layout;  ///< owns `line`
  PangoLayoutLine* line = nullptr;
  PdfTone tone = PdfTone::plain;
  double left = 0;  ///< from the left edge of its column
  double ascent = 0;
  double height = 0;
  double spaceBefore = 0;              ///< not at the top of a page
  std::int64_t unknownCharacters = 0;  ///< which no font has
};

/// Breaks texts into lines. One font map for each thread lies under it; an object belongs to one
/// thread.
class TextSetter {
 public:
  /// `language` is a two-letter code. Throws PdfError where there is no font.
  explicit TextSetter(const std::string& language);

  /// Sets `text` to `width`, a piece of several lines at a time, so that a long text takes
  /// neither memory nor more than linear time. There is at least one line.
  void set(const PdfText& text, double width, PdfAlignment alignment,
           const std::function<void(std::vector<SetLine>)>& take);
  /// `text` as one line; what is too long for `width` ends in an ellipsis.
  SetLine single(const PdfText& text, double width, PdfAlignment alignment);

 private:
  std::shared_ptr<PangoLayout> layout(std::string_view text, PdfStyle style, double width,
                                      PdfAlignment alignment);

  std::shared_ptr<PangoContext> context_;
};

}  // namespace ambervane

#endif  // AMBERVANE_PDF_TEXT_SETTER_H_
