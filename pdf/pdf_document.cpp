#include "pdf/pdf_document.h"

#include "pdf/drawing_library.h"
#include "pdf/drawing_target.h"
#include "pdf/pdf_error.h"
#include "pdf/text_setter.h"

namespace ambervane {

void requireFonts() {
  const FcFontSet* fonts = library().FcConfigGetFonts(nullptr, FcSetSystem);
  for (int i = 0; fonts != nullptr && i < fonts->nfont; ++i) {
    FcBool isOutline = FcFalse;
    const FcResult result = library().FcPatternGetBool(fonts->fonts[i], FC_OUTLINE, 0, &isOutline);
    if (result == FcResultMatch && isOutline != FcFalse) return;
  }
  throw PdfError(PdfError::NoFont{});
}

PdfDocument setPdf(const PdfSetup& setup, const std::function<void(PageFlow&)>& content) {
  TextSetter setter(setup.language);
  PageFlow counting(setter, setup, nullptr, 0);
  content(counting);
  DrawingTarget target(setup);
  PageFlow drawing(setter, setup, &target, counting.page_);
  content(drawing);
  target.endPage();
  PdfDocument document;
  document.bytes = target.finish();
  document.pages = drawing.page_;
  document.unknownCharacters = target.unknownCharacters();
  return document;
}

}  // namespace ambervane
