#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>

#include "base/text.h"
#include "doctext/attachment_kind.h"
#include "doctext/number_format.h"
#include "doctext/office_text.h"
#include "doctext/plain_text.h"
#include "doctext/xml_reader.h"
#include "tests/doctext/document_builder.h"

/// Reads the input as what its first byte says: a whole file, or one part of one, so that the
/// fuzzer need not get past checksums. PDF is left to the library that reads it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ambervane;
  if (size == 0) return 0;
  const BytesView input(reinterpret_cast<const char*>(data) + 1, size - 1);
  constexpr std::size_t kTextBytes = 4096;
  constexpr std::uint64_t kUnpackedBytes = 1 << 20;
  TextCollector collector(kTextBytes);
  switch (data[0]) {
    case 'z':
      readOfficeText(input, kUnpackedBytes, collector);
      break;
    case 'w':
      readOfficeText(packageOf("document.xml", std::string(input)), kUnpackedBytes, collector);
      break;
    case 's': {
      const std::string part(input);
      const Bytes workbook =
          packageOf("workbook.xml", "<workbook><sheets><sheet/></sheets></workbook>",
                    {{"x/_rels/workbook.xml.rels",
                      relationsTo({{"worksheet", "p"}, {"styles", "p"}, {"sharedStrings", "p"}})},
                     {"x/p", part},
                     {"x/_rels/p.rels", part}});
      readOfficeText(workbook, kUnpackedBytes, collector);
      break;
    }
    case 'o':
      readOfficeText(zipOf({{"content.xml", std::string(input)}}), kUnpackedBytes, collector);
      break;
    case 'x':
      readXmlText(input, collector);
      break;
    case 'n': {
      const std::size_t end = input.find('\n');
      const NumberFormat format(input.substr(0, end));
      if (end != BytesView::npos) collector.append(format.words(input.substr(end + 1), false));
      break;
    }
    case 'h':
      readHtml(input, std::nullopt, collector);
      break;
    case 'c':
      readCalendar(input, std::nullopt, collector);
      break;
    default:
      attachmentKind("", "", input);
      readPlainText(input, std::nullopt, collector);
  }
  if (collector.text().size() > kTextBytes || !isValidUtf8(collector.text())) std::abort();
  return 0;
}
