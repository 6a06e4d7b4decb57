#ifndef AMBERVANE_PDF_PDF_DOCUMENT_H_
#define AMBERVANE_PDF_PDF_DOCUMENT_H_

#include <cstdint>
#include <functional>
#include <string>

#include "base/bytes.h"
#include "base/date.h"
#include "pdf/page_flow.h"

namespace ambervane {

/// What a document says about itself, and what stands on each of its pages.
struct PdfSetup {
  std::string title;
  std::string author;
  std::string producer;  ///< the program
  std::string language;  ///< two-letter code; decides between forms of shared characters
  Date date;             ///< of its making; nothing else of the moment gets into the bytes
  std::string headerLeft, headerRight, footerLeft;
  /// The words at the foot's right; may be empty.
  std::function<std::string(int page, int pages)> pageLabel;
};

struct PdfDocument {
  Bytes bytes;
  int pages = 0;
  /// Characters that no font of this system has; each stands as a box with its number.
  std::int64_t unknownCharacters = 0;
};

/// Throws PdfError where `setPdf` could do nothing: there is no font that can be embedded, or the
/// libraries are missing.
void requireFonts();

/// Sets a document on sheets of A4, fonts embedded as far as they are used. `content` is called
/// twice and must do the same both times: pages are counted before they are drawn. The same
/// content, date, libraries and fonts give the same bytes. Throws PdfError, and what `content`
/// throws. Safe from any thread.
PdfDocument setPdf(const PdfSetup& setup, const std::function<void(PageFlow&)>& content);

}  // namespace ambervane

#endif  // AMBERVANE_PDF_PDF_DOCUMENT_H_
