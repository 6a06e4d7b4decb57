#ifndef AMBERVANE_DOCTEXT_OFFICE_TEXT_H_
#define AMBERVANE_DOCTEXT_OFFICE_TEXT_H_

#include <cstdint>

#include "base/bytes.h"
#include "doctext/text_collector.h"

namespace ambervane {

enum class DocumentReading : std::uint32_t {
  complete,
  damaged,      ///< what could be read is collected
  notDocument,  ///< a ZIP file, but of no kind that is read
};

/// The text of an Office Open XML file (ECMA-376: DOCX, XLSX, PPTX) or an OpenDocument file (ODT,
/// ODS, ODP). At most `unpackedBytes` are unpacked. Bounded in what it keeps, but hostile input may
/// cost much time: for use where a process can be ended.
DocumentReading readOfficeText(BytesView bytes, std::uint64_t unpackedBytes,
                               TextCollector& collector);

}  // namespace ambervane

#endif  // AMBERVANE_DOCTEXT_OFFICE_TEXT_H_
