#include "pdf/pdf_error.h"

namespace ambervane {

LocalizedMessage PdfError::message() const {
  struct Words {
    LocalizedMessage operator()(const NoFont&) const {
      return {
          "No page can be set, because this system has no font. Install one, such as the package "
          "fonts-liberation2, and try again.",
          {}};
    }
    LocalizedMessage operator()(const Library& r) const {
      return {"The pages could not be drawn: %@", {r.reason}};
    }
  };
  return std::visit(Words{}, reason_);
}

}  // namespace ambervane
