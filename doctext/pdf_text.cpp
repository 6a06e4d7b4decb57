#include "doctext/pdf_text.h"

#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-page.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <string>

#include "base/text.h"

namespace ambervane {
namespace {

/// Words that follow a hyphen which stands for a part left out ("Ein- und Ausgang").
constexpr std::string_view kConjunctions[] = {"und", "oder", "bzw", "sowie",
                                              "and", "or",   "et",  "ou"};

bool isConjunction(std::string_view text) {
  std::size_t end = 0;
  while (end < text.size() && text[end] >= 'a' && text[end] <= 'z') ++end;
  for (const std::string_view word : kConjunctions) {
    if (text.substr(0, end) == word) return true;
  }
  return false;
}

/// Whether a small letter of the Latin script begins `text`.
bool startsSmall(std::string_view text) {
  if (text.empty()) return false;
  std::size_t at = 0;
  const char32_t c = nextCodePoint(text, at);
  return (c >= 'a' && c <= 'z') || (c >= 0xdf && c <= 0xff && c != 0xf7);
}

bool endsInLetter(std::string_view text) {
  if (text.empty()) return false;
  const char c = text.back();
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c & 0x80) != 0;
}

/// Adds the lines of a page. A hyphen at the end of one, behind a letter and before a small one,
/// is where a word was cut; before anything else it belongs there ("RE-2024-" "0815").
void appendLines(std::string_view page, TextCollector& collector) {
  for (std::size_t begin = 0; begin < page.size() && !collector.isFull();) {
    const std::size_t end = std::min(page.find('\n', begin), page.size());
    const std::string_view line = trim(page.substr(begin, end - begin));
    begin = end + 1;
    const std::string_view rest = begin < page.size() ? page.substr(begin) : std::string_view();
    const std::size_t next = std::min(rest.find_first_not_of(' '), rest.size());
    const std::string_view nextLine = rest.substr(next);
    const bool isCut = line.ends_with('-') && endsInLetter(line.substr(0, line.size() - 1)) &&
                       startsSmall(nextLine) && !isConjunction(nextLine);
    collector.append(isCut ? line.substr(0, line.size() - 1) : line);
    // Soft hyphens leave no trace.
    if (!isCut && !line.ends_with("\xc2\xad")) collector.breakLine();
  }
}

using Document = std::unique_ptr<poppler::document>;

/// Null for what is no PDF. `bytes` must outlive the document.
Document openDocument(BytesView bytes) {
  poppler::set_debug_error_function([](const std::string&, void*) {}, nullptr);
  if (bytes.size() > std::numeric_limits<int>::max()) return nullptr;
  return Document(
      poppler::document::load_from_raw_data(bytes.data(), static_cast<int>(bytes.size())));
}

}  // namespace

bool readPdfText(BytesView bytes, TextCollector& collector) {
  const Document document = openDocument(bytes);
  if (!document || document->is_locked()) return false;
  const int count = document->pages();
  bool isWhole = count > 0;
  for (int index = 0; index < count && !collector.isFull(); ++index) {
    const std::unique_ptr<poppler::page> page(document->create_page(index));
    if (!page) {
      isWhole = false;
      continue;
    }
    // In the order the page was written in: rows of tables stay together, columns as well.
    const poppler::byte_array text =
        page->text(poppler::rectf(), poppler::page::raw_order_layout).to_utf8();
    appendLines({text.data(), text.size()}, collector);
    collector.checkpoint();
  }
  return isWhole;
}

void prepareForPdf() {
  static constexpr BytesView kPageWithoutContent =
      "%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n"
      "2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n"
      "3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 9 9]>>endobj\n"
      "trailer<</Root 1 0 R>>\n%%EOF\n";
  // The library's tables live as long as any document is open.
  static const Document kKept = openDocument(kPageWithoutContent);
}

}  // namespace ambervane
