#include "pdf/drawing_target.h"

#include <fmt/format.h>

#include <array>
#include <new>

#include "base/calendar.h"
#include "pdf/drawing_library.h"
#include "pdf/pdf_document.h"
#include "pdf/pdf_error.h"

namespace ambervane {
namespace {

struct Colour {
  double red, green, blue;
};

// In the order of `PdfTone`.
constexpr std::array<Colour, 5> kColours = {
    {{0, 0, 0}, {0.35, 0.35, 0.35}, {0.05, 0.38, 0.15}, {0.58, 0.33, 0}, {0.7, 0.05, 0.05}}};

}  // namespace

DrawingTarget::DrawingTarget(const PdfSetup& setup)
    : surface_(library().cairo_pdf_surface_create_for_stream(append, &bytes_, sheet::kWidth,
                                                             sheet::kHeight),
               library().cairo_surface_destroy),
      context_(library().cairo_create(surface_.get()), library().cairo_destroy) {
  setInformation(setup);
}

cairo_status_t DrawingTarget::append(void* bytes, const unsigned char* data, unsigned int length) {
  try {
    static_cast<Bytes*>(bytes)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
  } catch (const std::bad_alloc&) {
    return CAIRO_STATUS_NO_MEMORY;
  }
}

void DrawingTarget::setInformation(const PdfSetup& setup) {
  const auto set = [this](cairo_pdf_metadata_t key, const std::string& text) {
    library().cairo_pdf_surface_set_metadata(surface_.get(), key, settableText(text).c_str());
  };
  set(CAIRO_PDF_METADATA_TITLE, setup.title);
  set(CAIRO_PDF_METADATA_AUTHOR, setup.author);
  set(CAIRO_PDF_METADATA_CREATOR, setup.producer);
  // Without these the library asks the clock.
  set(CAIRO_PDF_METADATA_CREATE_DATE, iso8601(setup.date));
  set(CAIRO_PDF_METADATA_MOD_DATE, iso8601(setup.date));
}

void DrawingTarget::setColour(PdfTone tone) {
  const Colour& colour = kColours[static_cast<std::size_t>(tone)];
  library().cairo_set_source_rgb(context_.get(), colour.red, colour.green, colour.blue);
}

void DrawingTarget::drawLine(const SetLine& line, double left, double top) {
  unknownCharacters_ += line.unknownCharacters;
  setColour(line.tone);
  library().cairo_move_to(context_.get(), left + line.left, top + line.ascent);
  library().pango_cairo_show_layout_line(context_.get(), line.line);
}

void DrawingTarget::drawRule(double left, double right, double top, double width, PdfTone tone) {
  setColour(tone);
  library().cairo_set_line_width(context_.get(), width);
  library().cairo_move_to(context_.get(), left, top);
  library().cairo_line_to(context_.get(), right, top);
  library().cairo_stroke(context_.get());
}

void DrawingTarget::endPage() { library().cairo_show_page(context_.get()); }

void DrawingTarget::addToOutline(const std::string& title, int page, double top) {
  library().cairo_pdf_surface_add_outline(
      surface_.get(), CAIRO_PDF_OUTLINE_ROOT, settableText(title).c_str(),
      fmt::format("page={} pos=[0 {:.0f}]", page, top).c_str(), CAIRO_PDF_OUTLINE_FLAG_OPEN);
}

Bytes DrawingTarget::finish() {
  cairo_status_t status = library().cairo_status(context_.get());
  library().cairo_surface_finish(surface_.get());
  if (status == CAIRO_STATUS_SUCCESS) status = library().cairo_surface_status(surface_.get());
  if (status != CAIRO_STATUS_SUCCESS) {
    throw PdfError(PdfError::Library{library().cairo_status_to_string(status)});
  }
  return std::move(bytes_);
}

}  // namespace ambervane
