#ifndef AMBERVANE_PDF_DRAWING_TARGET_H_
#define AMBERVANE_PDF_DRAWING_TARGET_H_

#include <cairo.h>

#include <cstdint>
#include <memory>
#include <string>

#include "base/bytes.h"
#include "pdf/text_setter.h"

namespace ambervane {

struct PdfSetup;

/// A4 in points, and where on it things stand. The left margin leaves room for the holes of a file.
namespace sheet {
inline constexpr double kWidth = 595.276;
inline constexpr double kHeight = 841.89;
inline constexpr double kLeft = 68;
inline constexpr double kRight = kWidth - 51;
inline constexpr double kTop = 70;
inline constexpr double kBottom = kHeight - 66;
inline constexpr double kHeaderTop = 40;
inline constexpr double kFooterTop = kHeight - 48;
}  // namespace sheet

/// The pages of one PDF as they are drawn, into memory. Lengths are points from the page's upper
/// left corner.
class DrawingTarget {
 public:
  explicit DrawingTarget(const PdfSetup& setup);

  void drawLine(const SetLine& line, double left, double top);
  /// A straight line along `top`.
  void drawRule(double left, double right, double top, double width, PdfTone tone);
  void endPage();
  void addToOutline(const std::string& title, int page, double top);
  /// The whole file; nothing can be drawn after it. Throws PdfError.
  Bytes finish();

  std::int64_t unknownCharacters() const noexcept { return unknownCharacters_; }

 private:
  static cairo_status_t append(void* bytes, const unsigned char* data, unsigned int length);
  void setInformation(const PdfSetup& setup);
  void setColour(PdfTone tone);

  Bytes bytes_;  // outlives the surface, which writes into it when it is destroyed
  std::shared_ptr<cairo_surface_t> surface_;
  std::shared_ptr<cairo_t> context_;
  std::int64_t unknownCharacters_ = 0;
};

}  // namespace ambervane

#endif  // AMBERVANE_PDF_DRAWING_TARGET_H_
