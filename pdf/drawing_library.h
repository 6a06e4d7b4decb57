#ifndef AMBERVANE_PDF_DRAWING_LIBRARY_H_
#define AMBERVANE_PDF_DRAWING_LIBRARY_H_

#include <cairo-pdf.h>
#include <fontconfig/fontconfig.h>
#include <pango/pangocairo.h>

namespace ambervane {

#define AMBERVANE_DRAWING_FUNCTIONS(X)        \
  X(FcConfigGetFonts)                         \
  X(FcPatternGetBool)                         \
  X(g_object_unref)                           \
  X(cairo_create)                             \
  X(cairo_destroy)                            \
  X(cairo_font_options_create)                \
  X(cairo_font_options_destroy)               \
  X(cairo_font_options_set_hint_metrics)      \
  X(cairo_font_options_set_hint_style)        \
  X(cairo_line_to)                            \
  X(cairo_move_to)                            \
  X(cairo_pdf_surface_add_outline)            \
  X(cairo_pdf_surface_create_for_stream)      \
  X(cairo_pdf_surface_set_metadata)           \
  X(cairo_set_line_width)                     \
  X(cairo_set_source_rgb)                     \
  X(cairo_show_page)                          \
  X(cairo_status)                             \
  X(cairo_status_to_string)                   \
  X(cairo_stroke)                             \
  X(cairo_surface_destroy)                    \
  X(cairo_surface_finish)                     \
  X(cairo_surface_status)                     \
  X(pango_attr_insert_hyphens_new)            \
  X(pango_attr_list_insert)                   \
  X(pango_attr_list_new)                      \
  X(pango_attr_list_unref)                    \
  X(pango_cairo_context_set_font_options)     \
  X(pango_cairo_context_set_resolution)       \
  X(pango_cairo_font_map_get_default)         \
  X(pango_cairo_show_layout_line)             \
  X(pango_context_set_language)               \
  X(pango_context_set_round_glyph_positions)  \
  X(pango_font_description_free)              \
  X(pango_font_description_new)               \
  X(pango_font_description_set_family_static) \
  X(pango_font_description_set_size)          \
  X(pango_font_description_set_weight)        \
  X(pango_font_map_create_context)            \
  X(pango_language_from_string)               \
  X(pango_layout_get_iter)                    \
  X(pango_layout_iter_free)                   \
  X(pango_layout_iter_get_baseline)           \
  X(pango_layout_iter_get_line_extents)       \
  X(pango_layout_iter_get_line_readonly)      \
  X(pango_layout_iter_next_line)              \
  X(pango_layout_line_get_start_index)        \
  X(pango_layout_new)                         \
  X(pango_layout_set_alignment)               \
  X(pango_layout_set_attributes)              \
  X(pango_layout_set_ellipsize)               \
  X(pango_layout_set_font_description)        \
  X(pango_layout_set_single_paragraph_mode)   \
  X(pango_layout_set_text)                    \
  X(pango_layout_set_width)                   \
  X(pango_layout_set_wrap)

/// The functions of Pango, Cairo, Fontconfig and GObject that pages are set with, under their own
/// names. The libraries are loaded when the first page is set: together they are thirty files, and
/// linking with them would make every command take 7 ms longer to start.
struct DrawingLibrary {
#define AMBERVANE_DECLARE(name) decltype(&::name) name;
  AMBERVANE_DRAWING_FUNCTIONS(AMBERVANE_DECLARE)
#undef AMBERVANE_DECLARE
};

/// Safe from any thread. Throws PdfError where the libraries are not installed; a later call tries
/// again.
const DrawingLibrary& library();

}  // namespace ambervane

#endif  // AMBERVANE_PDF_DRAWING_LIBRARY_H_
