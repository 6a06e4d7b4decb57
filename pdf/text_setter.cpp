#include "pdf/text_setter.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "pdf/drawing_library.h"
#include "pdf/pdf_document.h"

namespace ambervane {
namespace {

/// Breaking a paragraph costs more than linear time and memory per character; a piece of this many
/// costs little of either, and holds several lines.
constexpr std::size_t kPieceCharacters = 1024;
/// Room between lines, as a factor on what the font asks for.
constexpr double kLeading = 1.1;

struct StyleFacts {
  const char* families;
  double size;  ///< points
  bool bold;
};

// The first family at hand is taken, and further ones for what it lacks.
constexpr const char* kSans = "Liberation Sans,Noto Sans,DejaVu Sans,sans-serif";
constexpr const char* kFixed = "Liberation Mono,Noto Sans Mono,DejaVu Sans Mono,monospace";
// In the order of `PdfStyle`.
constexpr std::array<StyleFacts, 7> kStyles = {{{kSans, 16, true},
                                                {kSans, 11.5, true},
                                                {kSans, 10, true},
                                                {kSans, 9.5, false},
                                                {kSans, 9.5, true},
                                                {kSans, 8, false},
                                                {kFixed, 8.5, false}}};

const StyleFacts& facts(PdfStyle style) { return kStyles[static_cast<std::size_t>(style)]; }

double points(int pangoUnits) { return static_cast<double>(pangoUnits) / PANGO_SCALE; }

template <typename Object>
std::shared_ptr<Object> owned(Object* object) {
  return {object, library().g_object_unref};
}

std::int64_t unknownGlyphs(PangoLayoutLine* line) {
  std::int64_t count = 0;
  for (const GSList* run = line->runs; run != nullptr; run = run->next) {
    const PangoGlyphString* glyphs = static_cast<const PangoGlyphItem*>(run->data)->glyphs;
    for (int i = 0; i < glyphs->num_glyphs; ++i) {
      if ((glyphs->glyphs[i].glyph & PANGO_GLYPH_UNKNOWN_FLAG) != 0) ++count;
    }
  }
  return count;
}

SetLine lineAt(PangoLayoutIter* iterator, const std::shared_ptr<PangoLayout>& layout,
               PdfTone tone) {
  PangoRectangle logical;
  library().pango_layout_iter_get_line_extents(iterator, nullptr, &logical);
  SetLine line;
  line.layout = layout;
  line.line = library().pango_layout_iter_get_line_readonly(iterator);
  line.tone = tone;
  line.unknownCharacters = unknownGlyphs(line.line);
  line.left = points(logical.x);
  line.height = points(logical.height) * kLeading;
  line.ascent = points(library().pango_layout_iter_get_baseline(iterator) - logical.y) +
                (line.height - points(logical.height)) / 2;
  return line;
}

std::vector<SetLine> linesOf(const std::shared_ptr<PangoLayout>& layout, PdfTone tone) {
  std::vector<SetLine> lines;
  const std::shared_ptr<PangoLayoutIter> iterator(library().pango_layout_get_iter(layout.get()),
                                                  library().pango_layout_iter_free);
  do {
    lines.push_back(lineAt(iterator.get(), layout, tone));
  } while (library().pango_layout_iter_next_line(iterator.get()));
  return lines;
}

}  // namespace

std::string settableText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const char32_t c = nextCodePoint(text, at);
    if (c == '\r' && at < text.size() && text[at] == '\n') continue;
    const bool endsLine =
        (c >= '\n' && c <= '\r') || c == 0x85 || c == 0x2028 || c == 0x2029;  // Unicode TR 14
    const bool isControl = (c < 0x20 && c != '\t') || (c >= 0x7f && c < 0xa0);
    const bool isOverride = c == 0x202d || c == 0x202e;
    appendUtf8(out, endsLine ? U'\n' : isControl || isOverride ? U'\xfffd' : c);
  }
  return out;
}

TextSetter::TextSetter(const std::string& language) {
  requireFonts();
  context_ =
      owned(library().pango_font_map_create_context(library().pango_cairo_font_map_get_default()));
  // A unit is a point, and characters stand where the design of the font has them, not on pixels.
  library().pango_cairo_context_set_resolution(context_.get(), 72);
  const std::shared_ptr<cairo_font_options_t> options(library().cairo_font_options_create(),
                                                      library().cairo_font_options_destroy);
  library().cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_NONE);
  library().cairo_font_options_set_hint_metrics(options.get(), CAIRO_HINT_METRICS_OFF);
  library().pango_cairo_context_set_font_options(context_.get(), options.get());
  library().pango_context_set_round_glyph_positions(context_.get(), FALSE);
  library().pango_context_set_language(context_.get(),
                                       library().pango_language_from_string(language.c_str()));
}

std::shared_ptr<PangoLayout> TextSetter::layout(std::string_view text, PdfStyle style, double width,
                                                PdfAlignment alignment) {
  auto layout = owned(library().pango_layout_new(context_.get()));
  const StyleFacts& look = facts(style);
  const std::shared_ptr<PangoFontDescription> font(library().pango_font_description_new(),
                                                   library().pango_font_description_free);
  library().pango_font_description_set_family_static(font.get(), look.families);
  library().pango_font_description_set_size(font.get(), static_cast<int>(look.size * PANGO_SCALE));
  library().pango_font_description_set_weight(font.get(),
                                              look.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  library().pango_layout_set_font_description(layout.get(), font.get());
  PangoAttrList* attributes = library().pango_attr_list_new();
  // A hyphen inside a digest or a path would be taken for a part of it.
  library().pango_attr_list_insert(attributes, library().pango_attr_insert_hyphens_new(FALSE));
  library().pango_layout_set_attributes(layout.get(), attributes);
  library().pango_attr_list_unref(attributes);
  library().pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
  library().pango_layout_set_width(layout.get(), static_cast<int>(width * PANGO_SCALE));
  library().pango_layout_set_alignment(
      layout.get(), alignment == PdfAlignment::end ? PANGO_ALIGN_RIGHT : PANGO_ALIGN_LEFT);
  library().pango_layout_set_text(layout.get(), text.data(), static_cast<int>(text.size()));
  return layout;
}

void TextSetter::set(const PdfText& text, double width, PdfAlignment alignment,
                     const std::function<void(std::vector<SetLine>)>& take) {
  const std::string settable = settableText(text.text);
  for (std::string_view rest : split(settable, '\n')) {
    do {
      const std::string_view piece = prefixCharacters(rest, kPieceCharacters);
      const auto set = layout(piece, text.style, width, alignment);
      std::vector<SetLine> lines = linesOf(set, text.tone);
      std::size_t taken = piece.size();
      if (taken < rest.size() && lines.size() > 1) {
        // The piece's last line is where more text belongs: it begins the next piece.
        taken = static_cast<std::size_t>(
            library().pango_layout_line_get_start_index(lines.back().line));
        lines.pop_back();
      }
      rest.remove_prefix(taken);
      take(std::move(lines));
    } while (!rest.empty());
  }
}

SetLine TextSetter::single(const PdfText& text, double width, PdfAlignment alignment) {
  std::string settable = settableText(text.text);
  std::ranges::replace(settable, '\n', ' ');
  const auto set =
      layout(prefixCharacters(settable, kPieceCharacters), text.style, width, alignment);
  library().pango_layout_set_single_paragraph_mode(set.get(), TRUE);
  library().pango_layout_set_ellipsize(set.get(), PANGO_ELLIPSIZE_END);
  return linesOf(set, text.tone).front();
}

}  // namespace ambervane
