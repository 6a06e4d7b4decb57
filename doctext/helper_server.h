#ifndef AMBERVANE_DOCTEXT_HELPER_SERVER_H_
#define AMBERVANE_DOCTEXT_HELPER_SERVER_H_

#include <functional>

#include "base/bytes.h"
#include "doctext/helper_protocol.h"
#include "doctext/office_text.h"
#include "doctext/text_collector.h"

namespace ambervane {

using DocumentReader = std::function<DocumentReading(const HelperRequest& request,
                                                     BytesView document, TextCollector& collector)>;

/// Answers requests from `socket` until it is closed. Each document is read by `reader` in a child
/// process with bounds on its time and memory, so that whatever a document does, it does to its own
/// reading only; the parts read before a child's end are still answered. For a process of one
/// thread that does nothing else. Returns the process's exit status.
int serveDocuments(int socket, const DocumentReader& reader);

/// Reads a document with the reader its task names.
DocumentReading readDocument(const HelperRequest& request, BytesView document,
                             TextCollector& collector);

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_HELPER_SERVER_H_
