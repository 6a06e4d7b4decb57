#ifndef AMBERVANE_DOCTEXT_PDF_TEXT_H_
#define AMBERVANE_DOCTEXT_PDF_TEXT_H_

#include "base/bytes.h"
#include "doctext/text_collector.h"

namespace ambervane {

/// The text of a PDF, page by page; words cut at the ends of lines are put together. False for one
/// that is damaged or wants a password.
///
/// The library behind it is bounded in neither time nor memory, ends the process where memory
/// ends, and has state that all threads share: for use in a process of its own only.
bool readPdfText(BytesView bytes, TextCollector& collector);

/// Sets up, for as long as the process and its children live, what every reading would otherwise
/// set up for itself.
void prepareForPdf();

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_PDF_TEXT_H_
