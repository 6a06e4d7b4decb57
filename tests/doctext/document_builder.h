#ifndef AMBERVANE_TESTS_DOCTEXT_DOCUMENT_BUILDER_H_
#define AMBERVANE_TESTS_DOCTEXT_DOCUMENT_BUILDER_H_

#include <zip.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "base/bytes.h"

namespace ambervane {

using Members = std::vector<std::pair<std::string, std::string>>;

/// A ZIP file of these members, deflated.
inline Bytes zipOf(const Members& members) {
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* const target = zip_source_buffer_create(nullptr, 0, 0, &error);
  zip_source_keep(target);
  zip_t* const archive = zip_open_from_source(target, ZIP_TRUNCATE, &error);
  for (const auto& [name, content] : members) {
    zip_source_t* const source = zip_source_buffer(archive, content.data(), content.size(), 0);
    if (zip_file_add(archive, name.c_str(), source, ZIP_FL_ENC_UTF_8) < 0) std::abort();
  }
  if (zip_close(archive) != 0) std::abort();
  Bytes bytes;
  zip_source_open(target);
  zip_source_seek(target, 0, SEEK_END);
  bytes.resize(static_cast<std::size_t>(zip_source_tell(target)));
  zip_source_seek(target, 0, SEEK_SET);
  zip_source_read(target, bytes.data(), bytes.size());
  zip_source_close(target);
  zip_source_free(target);
  return bytes;
}

/// A relationship part; each pair is a type and a target, their ids r1, r2 and so on.
inline std::string relationsTo(const Members& targets) {
  std::string xml =
      "<?xml version='1.0'?><Relationships xmlns='http://schemas.openxmlformats.org/"
      "package/2006/relationships'>";
  int number = 0;
  for (const auto& [type, target] : targets) {
    xml += "<Relationship Id='r" + std::to_string(++number) +
           "' Type='http://schemas.openxmlformats.org/officeDocument/2006/relationships/" + type +
           "' Target='" + target + "'/>";
  }
  return xml + "</Relationships>";
}

/// An Office Open XML package: `main` is a part of the folder "x".
inline Bytes packageOf(const std::string& main, const std::string& content, Members more = {}) {
  more.insert(more.begin(), {{"_rels/.rels", relationsTo({{"officeDocument", "x/" + main}})},
                             {"x/" + main, content}});
  return zipOf(more);
}

inline std::string wordXml(const std::string& body) {
  return "<w:document xmlns:w='urn:w' xmlns:mc='urn:mc'><w:body>" + body + "</w:body></w:document>";
}

inline Bytes wordFile(const std::string& body, Members more = {}) {
  return packageOf("document.xml", wordXml(body), std::move(more));
}

/// A PDF of these objects, numbered from 1, of which the first is the catalog.
inline Bytes pdfOf(const std::vector<std::string>& objects) {
  Bytes pdf = "%PDF-1.4\n";
  std::string table = "0000000000 65535 f \n";
  for (std::size_t i = 0; i < objects.size(); ++i) {
    const std::string offset = std::to_string(pdf.size());
    table += std::string(10 - offset.size(), '0') + offset + " 00000 n \n";
    pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
  }
  const std::string size = std::to_string(objects.size() + 1);
  const std::string start = std::to_string(pdf.size());
  return pdf + "xref\n0 " + size + "\n" + table + "trailer\n<</Size " + size +
         "/Root 1 0 R>>\nstartxref\n" + start + "\n%%EOF\n";
}

inline std::string pdfStream(const std::string& content, const std::string& entries = "") {
  return "<<" + entries + "/Length " + std::to_string(content.size()) + ">>stream\n" + content +
         "\nendstream";
}

inline constexpr const char* kPdfCatalog = "<</Type/Catalog/Pages 2 0 R>>";
inline constexpr const char* kPdfPage =
    "<</Type/Page/Parent 2 0 R/MediaBox[0 0 600 800]/Contents 4 0 R"
    "/Resources<</Font<</F 5 0 R>>/XObject<</X 6 0 R>>>>>>";
inline constexpr const char* kPdfFont =
    "<</Type/Font/Subtype/Type1/BaseFont/Helvetica/Encoding/WinAnsiEncoding>>";

/// A PDF of one page with these lines.
inline Bytes pdfWithLines(const std::vector<std::string>& lines) {
  std::string content = "BT /F 12 Tf 72 700 Td ";
  for (const std::string& line : lines) content += "(" + line + ") Tj 0 -14 Td ";
  return pdfOf({kPdfCatalog, "<</Type/Pages/Kids[3 0 R]/Count 1>>", kPdfPage,
                pdfStream(content + "ET"), kPdfFont});
}

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_DOCTEXT_DOCUMENT_BUILDER_H_
