#ifndef AMBERVANE_TESTS_PDF_PDF_READER_H_
#define AMBERVANE_TESTS_PDF_PDF_READER_H_

#include <poppler-document.h>
#include <poppler-page-renderer.h>
#include <poppler-page.h>

#include <memory>
#include <string>
#include <vector>

#include "base/bytes.h"

namespace ambervane {

/// A PDF as another program reads it.
class PdfReader {
 public:
  explicit PdfReader(Bytes bytes)
      : bytes_(std::move(bytes)),
        document_(poppler::document::load_from_raw_data(bytes_.data(),
                                                        static_cast<int>(bytes_.size()))) {}

  bool isReadable() const { return document_ != nullptr; }
  int pages() const { return document_->pages(); }
  poppler::document& document() const { return *document_; }

  std::string text(int page) const {
    const std::unique_ptr<poppler::page> read(document_->create_page(page));
    const auto bytes = read->text(poppler::rectf(), poppler::page::raw_order_layout).to_utf8();
    return {bytes.begin(), bytes.end()};
  }
  std::string text() const {
    std::string all;
    for (int page = 0; page < pages(); ++page) all += text(page);
    return all;
  }

  /// Whether anything is drawn on a page outside these points from its left edge.
  bool hasInkBeside(int page, int left, int right) const {
    const std::unique_ptr<poppler::page> read(document_->create_page(page));
    poppler::image image = poppler::page_renderer().render_page(read.get());
    const int perPixel = image.bytes_per_row() / image.width();
    for (int y = 0; y < image.height(); ++y) {
      const char* row = image.const_data() + y * image.bytes_per_row();
      for (int x = 0; x < image.width(); ++x) {
        if (x >= left && x < right) continue;
        for (int i = 0; i < 3; ++i) {
          if (row[x * perPixel + i] != '\xff') return true;
        }
      }
    }
    return false;
  }

 private:
  Bytes bytes_;
  std::unique_ptr<poppler::document> document_;
};

}  // namespace ambervane

#endif  // AMBERVANE_TESTS_PDF_PDF_READER_H_
