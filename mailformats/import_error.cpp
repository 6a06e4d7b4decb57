#include "mailformats/import_error.h"

namespace ambervane {

LocalizedMessage ImportError::message() const {
  struct Words {
    LocalizedMessage operator()(const Unreadable& r) const { return {"Cannot read %@", {r.item}}; }
    LocalizedMessage operator()(const Unsupported& r) const {
      return {"Unsupported mail source at %@", {r.path}};
    }
    LocalizedMessage operator()(const NotYetImportable& r) const {
      return {"%@: this version cannot import this kind of source yet (%@)", {r.path, r.label}};
    }
    LocalizedMessage operator()(const Cancelled&) const { return {"The import was stopped", {}}; }
  };
  return std::visit(Words{}, reason_);
}

}  // namespace ambervane
